// The agents of the agents directory, as their files describe them; for
// zelc -l and for names given as patterns.
#pragma once

#include <string>
#include <vector>

namespace zelc {

struct AgentEntry {
    std::string name;     // PREFIX.NAME, the file's name
    long pid = 0;         // 0 when the file does not say
    long port = 0;        // 0 without TCP
    std::string socket;   // empty when the file does not say
    bool live = false;    // some process holds the file's lock
};

// Every agent file of the agents directory, by name; none when the
// directory is missing. Stale files are reported, not removed.
std::vector<AgentEntry> agents();

// Whether `name` is a pattern (it has * ? or [) rather than one name.
bool isPattern(std::string const& name);

} // namespace zelc
