# The target tessmaru_re2, if there is an RE2 for the target.
include(CheckCXXSourceCompiles)
set(TESSMARU_RE2_DIR ${PROJECT_SOURCE_DIR}/build/re2 CACHE PATH "The folder to which tools/fetch_re2.sh got RE2")

# A library of another processor does not link.
set(CMAKE_REQUIRED_LIBRARIES re2)
check_cxx_source_compiles("#include <re2/re2.h>
int main() { return re2::RE2(\"a\").ok() ? 0 : 1; }" TESSMARU_HAS_RE2)
unset(CMAKE_REQUIRED_LIBRARIES)
if(TESSMARU_HAS_RE2)
  add_library(tessmaru_re2 INTERFACE)
  target_link_libraries(tessmaru_re2 INTERFACE re2)
  return()
endif()

set(re2 ${TESSMARU_RE2_DIR}/source)
if(NOT EXISTS ${TESSMARU_RE2_DIR}/made)
  return()
endif()
add_library(tessmaru_re2 STATIC
  ${re2}/re2/bitstate.cc
  ${re2}/re2/compile.cc
  ${re2}/re2/dfa.cc
  ${re2}/re2/nfa.cc
  ${re2}/re2/onepass.cc
  ${re2}/re2/parse.cc
  ${re2}/re2/perl_groups.cc
  ${re2}/re2/prefilter.cc
  ${re2}/re2/prog.cc
  ${re2}/re2/re2.cc
  ${re2}/re2/regexp.cc
  ${re2}/re2/simplify.cc
  ${re2}/re2/stringpiece.cc
  ${re2}/re2/tostring.cc
  ${re2}/re2/unicode_casefold.cc
  ${re2}/re2/unicode_groups.cc
  ${re2}/util/rune.cc
  ${re2}/util/strutil.cc)
target_include_directories(tessmaru_re2 SYSTEM PUBLIC ${re2})
# It is slow without optimisation, and its warnings are not ours.
target_compile_options(tessmaru_re2 PRIVATE -O2 -w)
