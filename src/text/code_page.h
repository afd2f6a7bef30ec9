// Text in the machine's active code page.
#pragma once

#include "tessmaru/text.h"

#include <string>

/// The bytes of a text.
/// @throws _com_error with the platform's code if the page cannot hold it; std::bad_alloc.
std::string NarrowText(const utility::wstring& text);

/// The text of zero-terminated bytes.
/// @throws _com_error with the platform's code for bytes that the page does not have; std::bad_alloc.
utility::wstring WideText(const char* bytes);
