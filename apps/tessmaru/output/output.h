// Standard output: buffered, and with colours where a person reads it.
#pragma once

#include <fstream>
#include <string>
#include <string_view>

namespace tool {

enum class Style { plain, bold, dim, red, yellow, green, cyan };

/// Writes to standard output, or to a file in its place. A reader that closes its end of the pipe ends the program
/// quietly.
class Output {
public:
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    /// Decides about colours: `always`, `never`, or `auto`, which means a terminal and no NO_COLOR.
    void SetColor(std::string_view choice);
    bool hasColor() const { return HasColor; }

    /// Writes to a new file from here on. @throws Failure with Exit::unreadable
    void Redirect(const std::string& path);

    void Write(std::string_view text)
    {
        Buffer.append(text);
        FlushIfFull();
    }
    void Write(std::string_view text, Style style);
    void Line(std::string_view text)
    {
        Write(text);
        Write("\n");
    }

    /// The text that was not passed on yet, for code that appends much of it.
    std::string& Text() { return Buffer; }
    void FlushIfFull()
    {
        if (Buffer.size() >= FlushSize)
            Flush();
    }

    /// Passes much text to the reader without a copy in the buffer.
    void Pass(std::string_view text);

    /// Passes what was written to the reader.
    void Flush();

private:
    static constexpr std::size_t FlushSize = 64 * 1024;

    void PassOn(std::string_view text);

    std::string Buffer;
    bool HasColor = false;
    std::string Path;  // of the file; empty: standard output
    std::ofstream File;
};

}  // namespace tool
