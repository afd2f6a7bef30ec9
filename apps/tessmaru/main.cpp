// `tessmaru`: the operator's tool of the Veltrix log. It reads; only `log rotate` and `settings init` write.
#include "cli/application.h"
#include "platform/terminal.h"

int main(int count, char** arguments)
{
    tool::platform::PrepareStreams();
    return static_cast<int>(tool::RunApplication(tool::platform::Arguments(count, arguments)));
}
