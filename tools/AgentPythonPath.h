// Where an agent's Python packages (Zel, PyServer and the modules they
// import) are: a zelagent of a build tree takes them from that tree and the
// sources, an installed one from the package folder beside its own prefix,
// so that neither needs PYTHONPATH.
#pragma once

#include <string>
#include <vector>

namespace Zel {

// `buildBinDir`: the build tree's program folder; `buildPath`: its folders,
// ':'-separated; `installedDir`: the package folder relative to the folder
// of an installed zelagent. `exe` is the running program (/proc/self/exe).
std::vector<std::string> agentPythonPath(std::string const& exe, std::string const& buildBinDir,
                                         std::string const& buildPath, std::string const& installedDir);

} // namespace Zel
