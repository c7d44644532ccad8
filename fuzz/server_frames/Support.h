// What every part of the server_frames harness shares: how a finding is
// reported, bytes shown readably, the owners of a Python reference and of
// a descriptor and the interpreter-lock scopes (the runtime's and the
// module's own).
#pragma once

#include <Python.h>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "Zel/Fd.h"
#include "support/Gil.h"
#include "support/PyCompat.h"
#include "support/PyRef.h"

namespace zelfuzz::serverframes {

using namespace std::literals;
using Clock = std::chrono::steady_clock;
using Zel::Fd;
using Zel::HeldGil;
using Zel::PyRef;
using Zel::ReleasedGil;

[[noreturn]] inline void finding(std::string const& what) {
    std::fprintf(stderr, "fuzz_server_frames: %s\n", what.c_str());
    std::fflush(stderr);
    std::abort();
}

// Bytes as C escapes, cut after `max`.
inline std::string shown(std::string_view s, size_t max = 200) {
    std::string out;
    for (size_t i = 0; i < s.size() && i < max; ++i) {
        auto c = static_cast<unsigned char>(s[i]);
        if (c >= 0x20 && c < 0x7f && c != '\\') {
            out += char(c);
        } else {
            char e[8];
            std::snprintf(e, sizeof e, "\\x%02x", c);
            out += e;
        }
    }
    if (s.size() > max) out += "... (" + std::to_string(s.size()) + " bytes)";
    return out;
}

// The last line with more than blanks, as the glue's lastLine.
inline std::string_view lastLine(std::string_view text) {
    size_t end = text.size();
    while (end > 0) {
        size_t begin = text.rfind('\n', end - 1);
        begin = begin == std::string_view::npos ? 0 : begin + 1;
        std::string_view line = text.substr(begin, end - begin);
        if (line.find_first_not_of(" \t\r\n\v\f") != std::string_view::npos) return line;
        end = begin == 0 ? 0 : begin - 1;
    }
    return {};
}

} // namespace zelfuzz::serverframes
