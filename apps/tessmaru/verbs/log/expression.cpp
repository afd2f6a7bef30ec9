// A regular expression for the texts of records, by RE2.
#include "verbs/log/expression.h"

#include "cli/session.h"

#include <re2/re2.h>

namespace tool {

struct Expression::Compiled {
    re2::RE2 Pattern;
};

Expression::Expression(const std::string& pattern) : Pattern(new Compiled{re2::RE2(pattern, re2::RE2::Quiet)})
{
    if (!Pattern->Pattern.ok())
        throw Failure(Exit::usage, "--regex: " + Pattern->Pattern.error());
}

Expression::~Expression() = default;

bool Expression::IsIn(std::string_view text) const
{
    return re2::RE2::PartialMatch(re2::StringPiece(text.data(), text.size()), Pattern->Pattern);
}

}  // namespace tool
