// A module of which only the resources matter.
extern "C" int ToolModule();

int ToolModule()
{
    return 0;
}
