// A file that several processes map into memory: each sees the writes of the others.
//
//     const SharedValue<std::atomic<int>> count(folder / "count");   ++*count;
#pragma once

#include <cstddef>
#include <filesystem>

namespace testkit {

class MappedFile {
public:
    /// Maps the first `size` bytes of a file. Makes the file, filled with zeros, if it does not exist.
    /// @throws std::system_error
    MappedFile(const std::filesystem::path& path, std::size_t size);
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    ~MappedFile();

    void* data() const { return Memory; }

private:
    void* Memory = nullptr;
    std::size_t Size;
};

/// A value in a mapped file, zero at first. Its type must be usable without construction, as atomic numbers are.
template <class Value>
class SharedValue {
public:
    explicit SharedValue(const std::filesystem::path& path) : File(path, sizeof(Value)) {}

    Value& operator*() const { return *static_cast<Value*>(File.data()); }
    Value* operator->() const { return static_cast<Value*>(File.data()); }

private:
    MappedFile File;
};

}  // namespace testkit
