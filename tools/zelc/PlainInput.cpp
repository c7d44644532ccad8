// Lines of a standard input that is not a terminal (see LineInput.h).
#include <unistd.h>

#include <cerrno>

#include "CtrlC.h"
#include "LineInput.h"

namespace zelc {

namespace {

class PlainInput : public LineInput {
public:
    explicit PlainInput(CtrlC& ctrlC) : ctrlC_(ctrlC) {}

    Input read(std::string const&) override {
        for (;;) {
            size_t newline = pending_.find('\n');
            if (newline != std::string::npos) {
                Input in{Input::Kind::Line, pending_.substr(0, newline)};
                pending_.erase(0, newline + 1);
                return in;
            }
            if (ended_) {
                if (pending_.empty()) return {Input::Kind::End, {}};
                return {Input::Kind::Line, std::exchange(pending_, {})};   // a last line without its newline
            }
            char buf[4096];
            ssize_t n = ::read(0, buf, sizeof buf);
            if (n > 0) {
                pending_.append(buf, size_t(n));
            } else if (n == 0 || errno != EINTR) {
                ended_ = true;
            } else if (ctrlC_.taken()) {
                pending_.clear();
                return {Input::Kind::Interrupted, {}};
            }
        }
    }

private:
    CtrlC& ctrlC_;
    std::string pending_;
    bool ended_ = false;
};

} // namespace

std::unique_ptr<LineInput> plainInput(CtrlC& ctrlC) { return std::make_unique<PlainInput>(ctrlC); }

} // namespace zelc
