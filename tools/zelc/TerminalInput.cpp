// Lines from a terminal, edited with libedit (see LineInput.h).
#include <histedit.h>

#include <cerrno>
#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>

#include "CtrlC.h"
#include "History.h"
#include "LineInput.h"

namespace zelc {

namespace {

constexpr char kIndent[] = "    ";

class TerminalInput : public LineInput {
public:
    TerminalInput(CtrlC& ctrlC, LineHistory& history, Completer complete)
        : ctrlC_(ctrlC), history_(history), complete_(std::move(complete)),
          el_(::el_init("zelc", stdin, stdout, stderr)) {
        if (!el_) throw std::runtime_error("cannot set the terminal up for line editing");
        ::el_set(el_, EL_CLIENTDATA, this);
        ::el_set(el_, EL_EDITOR, "emacs");
        ::el_set(el_, EL_SIGNAL, 0);   // SIGINT is CtrlC's
        // At the prompt Ctrl-C is a key, read in turn with those typed after
        // it (as a signal it could overtake them): it drops the line.
        ::el_set(el_, EL_SETTY, "-d", "-isig", nullptr);
        ::el_set(el_, EL_ADDFN, "zelc-interrupt", "drop the line", &TerminalInput::onCtrlC);
        ::el_set(el_, EL_BIND, "^C", "zelc-interrupt", nullptr);
        ::el_set(el_, EL_PROMPT, &TerminalInput::promptOf);
        ::el_set(el_, EL_HIST, ::history, history_.handle());
        ::el_set(el_, EL_ADDFN, "zelc-complete", "complete a name or an attribute", &TerminalInput::onTab);
        ::el_set(el_, EL_BIND, "^I", "zelc-complete", nullptr);
        ::el_source(el_, nullptr);   // the user's own bindings (~/.editrc), if any
    }
    ~TerminalInput() override { ::el_end(el_); }
    TerminalInput(TerminalInput const&) = delete;
    TerminalInput& operator=(TerminalInput const&) = delete;

    Input read(std::string const& prompt) override {
        prompt_ = prompt;
        ctrlC_.taken();   // a Ctrl-C pressed as the last command ended is not for this line
        int count = 0;
        char const* line = ::el_gets(el_, &count);
        if (!line) {
            if (std::exchange(interrupted_, false) || (count < 0 && errno == EINTR && ctrlC_.taken())) {
                std::fputs("\n", stdout);
                std::fflush(stdout);
                return {Input::Kind::Interrupted, {}};
            }
            std::fputs("\n", stdout);   // Ctrl-D leaves the prompt's line
            return {Input::Kind::End, {}};
        }
        std::string text(line, size_t(count));
        if (!text.empty() && text.back() == '\n') text.pop_back();
        if (text.find_first_not_of(" \t") != std::string::npos) history_.add(text);
        return {Input::Kind::Line, std::move(text)};
    }

private:
    static TerminalInput& of(EditLine* el) {
        void* self = nullptr;
        ::el_get(el, EL_CLIENTDATA, &self);
        return *static_cast<TerminalInput*>(self);
    }

    static char* promptOf(EditLine* el) { return of(el).prompt_.data(); }

    static unsigned char onTab(EditLine* el, int) { return of(el).completeAtCursor(); }

    static unsigned char onCtrlC(EditLine* el, int) {
        of(el).interrupted_ = true;
        return CC_EOF;   // el_gets returns, with no line
    }

    unsigned char completeAtCursor() {
        LineInfo const* info = ::el_line(el_);
        std::string_view before(info->buffer, size_t(info->cursor - info->buffer));
        if (before.find_first_not_of(" \t") == std::string_view::npos) {
            // Tab where a statement starts indents, as it does in a block.
            ::el_insertstr(el_, kIndent);
            return CC_REFRESH;
        }
        std::pair<std::string, std::vector<std::string>> found;
        try {
            found = complete_(before);
        } catch (...) {   // the agent could not tell: nothing to offer
            return CC_REFRESH_BEEP;
        }
        auto const& [word, candidates] = found;
        if (candidates.empty()) return CC_REFRESH_BEEP;
        std::string common = candidates.front();
        for (auto const& c : candidates) {
            size_t n = 0;
            while (n < common.size() && n < c.size() && common[n] == c[n]) ++n;
            common.resize(n);
        }
        if (common.size() > word.size() && common.compare(0, word.size(), word) == 0) {
            ::el_insertstr(el_, common.c_str() + word.size());
            return CC_REFRESH;
        }
        if (candidates.size() == 1) return CC_REFRESH;
        // Nothing more in common: the choices, below the line.
        std::fputs("\n", stdout);
        size_t width = 0;
        for (auto const& c : candidates) width = std::max(width, c.size());
        size_t perRow = std::max<size_t>(1, 80 / (width + 2)), column = 0;
        for (auto const& c : candidates) {
            std::fprintf(stdout, "%-*s", int(width + 2), c.c_str());
            if (++column % perRow == 0) std::fputs("\n", stdout);
        }
        if (column % perRow != 0) std::fputs("\n", stdout);
        std::fflush(stdout);
        return CC_REDISPLAY;
    }

    CtrlC& ctrlC_;
    LineHistory& history_;
    Completer complete_;
    std::string prompt_;
    bool interrupted_ = false;
    EditLine* el_;
};

} // namespace

std::unique_ptr<LineInput> terminalInput(CtrlC& ctrlC, LineHistory& history, Completer complete) {
    return std::make_unique<TerminalInput>(ctrlC, history, std::move(complete));
}

} // namespace zelc
