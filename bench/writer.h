// A way to write records to a file that several processes share. Each writing program implements one.
#pragma once

#include <memory>
#include <string>

namespace bench {

class Writer {
public:
    Writer() = default;
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    virtual ~Writer() = default;

    /// Any thread may call it. False if the record could not be written.
    virtual bool Write(int number) = 0;
};

/// Opens the file for appending in this program's way.
std::unique_ptr<Writer> MakeWriter(const std::string& path);

}  // namespace bench
