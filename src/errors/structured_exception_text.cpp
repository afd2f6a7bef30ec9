// The text of a fault, from the record that a translator receives.
#include "errors/structured_exception_text.h"

#include "settings/tag_specification.h"

#include <exception>

void describeStructuredException(unsigned int code, const EXCEPTION_POINTERS& info, fault_text::Text& text)
{
    const EXCEPTION_RECORD& record = *info.ExceptionRecord;
    fault_text::Describe({code, reinterpret_cast<std::uintptr_t>(record.ExceptionAddress),
                          record.ExceptionInformation[0], record.ExceptionInformation[1]},
                         text);
}

std::string describeStructuredException(unsigned int code, EXCEPTION_POINTERS* info)
{
    std::string result;
    // A failure must not replace the fault: its own text becomes the description.
    try {
        fault_text::Text text;
        describeStructuredException(code, *info, text);
        result = text.Data();
    } catch (const std::exception& failure) {
        result = std::string("(Error extracting exception information: std::ex - ") + failure.what() + ")";
    } catch (...) {
        result = "(Error extracting exception information.)";
    }
    return result;
}
