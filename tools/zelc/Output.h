// What one agent's run prints: kept until the run ends, then written in one
// piece, so that runs in several agents at once do not mix their lines.
// With a prefix (the agent's name), every line gets it.
#pragma once

#include <string>
#include <string_view>

namespace zelc {

// "zelc: " and `line` as one line, its newline included: newlines within
// become blanks.
std::string failureLine(std::string_view line);

class Output {
public:
    explicit Output(std::string prefix = {}) : prefix_(std::move(prefix)) {}

    void out(std::string_view text) { out_ += text; }
    void outMoved(std::string&& text);   // a large result is not copied
    void err(std::string_view text) { err_ += text; }
    // One failure line: "zelc: " and `line` (newlines made blanks).
    void errLine(std::string_view line);

    // Writes what was kept, the output before the errors. False when
    // standard output could not be written.
    bool flush();

private:
    std::string prefix_;
    std::string out_;
    std::string err_;
};

} // namespace zelc
