// A run's output, kept and written in one piece (see Output.h).
#include "Output.h"

#include <cstdio>

namespace zelc {

namespace {

// `text` with `prefix` and ": " before each line; a last line without its
// newline gets one, as a line of its own.
std::string prefixed(std::string_view prefix, std::string_view text) {
    std::string r;
    while (!text.empty()) {
        size_t end = text.find('\n');
        r.append(prefix).append(": ").append(text.substr(0, end)).push_back('\n');
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    }
    return r;
}

bool write(FILE* f, std::string_view text) {
    if (!text.empty() && std::fwrite(text.data(), 1, text.size(), f) != text.size()) return false;
    return std::fflush(f) == 0;
}

} // namespace

void Output::outMoved(std::string&& text) {
    if (out_.empty()) {
        out_ = std::move(text);
    } else {
        out_ += text;
    }
}

std::string failureLine(std::string_view line) {
    std::string text = "zelc: ";
    text += line;
    for (char& c : text) {
        if (c == '\n') c = ' ';
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text + '\n';
}

void Output::errLine(std::string_view line) { err_ += failureLine(line); }

bool Output::flush() {
    bool ok = prefix_.empty() ? write(stdout, out_) : write(stdout, prefixed(prefix_, out_));
    write(stderr, prefix_.empty() ? err_ : prefixed(prefix_, err_));
    out_.clear();
    err_.clear();
    return ok;
}

} // namespace zelc
