// The machine's own text for an error.
#include "platform/errno_text.h"

#include <cstring>

namespace tool::platform {

std::string ErrnoText(int error)
{
    const char* const text = strerrordesc_np(error);
    return text == nullptr ? std::string() : text;
}

}  // namespace tool::platform
