// The modes of zelc, in the order --help and the usage list them. A mode
// is a flag here and an entry function in a file of its own.
#include "Options.h"

namespace zelc {

int runCommand(Options const& o);       // Command.cpp
int runInteractive(Options const& o);   // Interactive.cpp

std::vector<Mode> const& modes() {
    static std::vector<Mode> const all = {
        {"", Mode::Target::One, "[-x] [--trust-user NAME]... (PREFIX.NAME | -s SOCKET | -p PORT) COMMAND...",
         "  -x                 execute COMMAND and print its output (default: evaluate, print the value)\n",
         runCommand},
        {"-i", Mode::Target::One, "-i [--trust-user NAME]... (PREFIX.NAME | -s SOCKET | -p PORT)",
         "  -i                 read commands from standard input, one a line\n", runInteractive},
    };
    return all;
}

} // namespace zelc
