// Writes entries of a log for a person, or as lines of JSON.
#pragma once

#include "output/output.h"
#include "records/record_reader.h"
#include "verbs/log/filter.h"

#include <string>

namespace tool {

/// The forms of the output of `tessmaru log`.
class RecordOutput {
public:
    /// @param file  the name of the log, which lines of JSON carry
    RecordOutput(bool isJson, bool hasColor, std::string file);

    /// Appends an entry as lines with their ends. Lines that belong to no record are marked as continuations.
    void Append(std::string& out, const records::Entry& entry, Filter& filter) const;

private:
    void AppendShown(std::string& out, const records::Entry& entry) const;
    void AppendJson(std::string& out, const records::Entry& entry, Filter& filter) const;

    bool IsJson;
    bool HasColor;
    std::string AfterText;  // the end of a line of JSON, up to the offset
};

}  // namespace tool
