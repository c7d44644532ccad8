// Where the console's lines come from: a terminal, edited with libedit
// (TerminalInput.cpp), or anything else read plainly, so that a script can
// be piped in (PlainInput.cpp).
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zelc {

class CtrlC;
class LineHistory;

struct Input {
    enum class Kind {
        Line,          // `line`, without its newline
        Interrupted,   // Ctrl-C: what was typed is dropped
        End,           // Ctrl-D at an empty line, or the end of the input
    } kind;
    std::string line;
};

class LineInput {
public:
    virtual ~LineInput() = default;
    // The next line; `prompt` is shown on a terminal.
    virtual Input read(std::string const& prompt) = 0;
};

// Given the line up to the cursor: the word being completed and what can
// replace it.
using Completer = std::function<std::pair<std::string, std::vector<std::string>>(std::string_view line)>;

// Standard input as a terminal: line editing, `history` (recalled with the
// arrow keys; lines read are added), Tab completing through `complete`.
std::unique_ptr<LineInput> terminalInput(CtrlC& ctrlC, LineHistory& history, Completer complete);

// Standard input read as it comes, no prompt shown.
std::unique_ptr<LineInput> plainInput(CtrlC& ctrlC);

} // namespace zelc
