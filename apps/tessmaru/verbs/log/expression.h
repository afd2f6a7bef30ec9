// A regular expression for the texts of records.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace tool {

/// An expression that is found in time proportional to the text, whatever the expression is.
class Expression {
public:
    /// @throws Failure with Exit::usage if it is malformed
    explicit Expression(const std::string& pattern);
    Expression(const Expression&) = delete;
    Expression& operator=(const Expression&) = delete;
    ~Expression();

    /// @param text UTF-8
    bool IsIn(std::string_view text) const;

private:
    struct Compiled;
    std::unique_ptr<Compiled> Pattern;
};

}  // namespace tool
