// The exception for a processor fault, and the object that has faults of a thread thrown as such.
#include "tessmaru/structured_exception.h"

#include "errors/spare_exceptions.h"
#include "errors/structured_exception.h"
#include "settings/tag_specification.h"

#include <typeinfo>

structured_exception::structured_exception(const char* text) : Text(text) {}
structured_exception::structured_exception(const structured_exception& other) noexcept = default;
structured_exception& structured_exception::operator=(const structured_exception& other) noexcept = default;
structured_exception::~structured_exception() = default;

const char* structured_exception::what() const noexcept
{
    return Text.what();
}

void translateStructuredException(unsigned int code, EXCEPTION_POINTERS* info)
{
    fault_text::Text text;
    describeStructuredException(code, *info, text);
    throwStructuredException(text);
}

InstallSETranslator::InstallSETranslator()
{
    install();
}

InstallSETranslator::~InstallSETranslator()
{
    uninstall();
}

void InstallSETranslator::install()
{
    makeSpareExceptions();
    platform::SetThrownType(translateStructuredException, typeid(structured_exception));
    CurrentTranslator = translateStructuredException;
    PreviousTranslator = _set_se_translator(CurrentTranslator);
}

// Does not restore the translator that `install` replaced: objects do not nest, by contract.
void InstallSETranslator::uninstall()
{
    CurrentTranslator = nullptr;
    PreviousTranslator = _set_se_translator(CurrentTranslator);
}
