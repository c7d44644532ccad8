// The console's history of lines: kept by libedit, at most kEntries, in
// ~/.zelc_history, which is loaded when the console starts and saved after
// every line entered (so a console that is killed keeps what it had). The
// file is created readable by its owner alone: lines can hold secrets.
#pragma once

#include <histedit.h>

#include <string>

namespace zelc {

class LineHistory {
public:
    static constexpr int kEntries = 1000;

    // `path` empty: a history of this console alone.
    explicit LineHistory(std::string path);
    ~LineHistory();
    LineHistory(LineHistory const&) = delete;
    LineHistory& operator=(LineHistory const&) = delete;

    // $HOME/.zelc_history; empty without a home.
    static std::string defaultPath();

    void add(std::string const& line);
    ::History* handle() const { return history_; }

private:
    std::string path_;
    ::History* history_;
};

} // namespace zelc
