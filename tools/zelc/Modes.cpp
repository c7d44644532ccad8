// The modes of zelc, in the order --help and the usage list them. A mode
// is a flag here and an entry function in a file of its own.
#include "Options.h"

namespace zelc {

int runCommand(Options const& o);       // Command.cpp
int runInteractive(Options const& o);   // Interactive.cpp
int runList(Options const& o);          // List.cpp
int runWatch(Options const& o);         // Watch.cpp
int runStacks(Options const& o);        // Stacks.cpp

std::vector<Mode> const& modes() {
    static std::vector<Mode> const all = {
        {"", Mode::Target::Pattern,
         "[-x] [--trust-user NAME]... (PREFIX.NAME | PATTERN | -s SOCKET | -p PORT) (COMMAND... | -)\n"
         "-f FILE [--trust-user NAME]... (PREFIX.NAME | PATTERN | -s SOCKET | -p PORT)",
         "  -x                 execute COMMAND and print its output (default: evaluate, print the value)\n"
         "  -                  the command is standard input, whole\n"
         "  -f FILE            execute FILE (no COMMAND); of any size\n"
         "  PATTERN            a name with * ? or [...] ('demo.*'): the command runs in every live agent\n"
         "                     matching it at once, each output line prefixed with the agent's name\n",
         runCommand},
        {"-i", Mode::Target::One, "-i [--trust-user NAME]... (PREFIX.NAME | -s SOCKET | -p PORT)",
         "  -i                 a console: statements as at Python's prompt (\"... \" asks for more lines\n"
         "                     of a block; an empty line ends it), run in the agent, which prints\n"
         "                     expression values. On a terminal: line editing, history in\n"
         "                     ~/.zelc_history, Tab completes names and attributes, Ctrl-C clears\n"
         "                     the line or interrupts the running statement, Ctrl-D leaves.\n"
         "                     Other input (a script) is read plainly, without prompts\n",
         runInteractive},
        {"-l", Mode::Target::None, "-l",
         "  -l                 list the agents of the agents directory: name, pid, TCP port, socket,\n"
         "                     live or stale (no live holder of its lock), one a line\n",
         runList},
        {"--watch", Mode::Target::One,
         "--watch [--trust-user NAME]... (PREFIX.NAME | -s SOCKET | -p PORT) ENTITY [ATTR...]",
         "  --watch            print the changes of the entity of full name ENTITY (\"/sw1/et1\"), of\n"
         "                     the ATTRs only when given, one a line: date, time, entity, attribute, new\n"
         "                     value (the key for a collection), until Ctrl-C (exit status 0); a line\n"
         "                     says how many changes were dropped when they came faster than read\n",
         runWatch},
        {"--stacks", Mode::Target::One, "--stacks [--trust-user NAME]... (PREFIX.NAME | -s SOCKET | -p PORT)",
         "  --stacks           print the Python stack of every thread of the agent\n", runStacks},
    };
    return all;
}

} // namespace zelc
