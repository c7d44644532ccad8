// zelc: the command-line client of an agent's PyServer. `zelc --help` says
// how to use it; Modes.cpp lists its modes, each run by a file of its own.
#include <signal.h>

#include "Client.h"
#include "Options.h"
#include "Output.h"

int main(int argc, char** argv) {
    // A vanished server, or a closed standard output, must show as an
    // error, not end zelc.
    ::signal(SIGPIPE, SIG_IGN);
    try {
        zelc::Options o;
        int status = zelc::parse(argc, argv, o);
        if (status >= 0) return status;
        return o.mode->run(o);
    } catch (...) {
        // Whatever a mode let through: still one line and a status.
        zelc::Output output;
        int status = zelc::failure(output);
        output.flush();
        return status;
    }
}
