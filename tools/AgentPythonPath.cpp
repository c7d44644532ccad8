#include "AgentPythonPath.h"

#include <filesystem>
#include <system_error>

namespace Zel {

namespace fs = std::filesystem;

std::vector<std::string> agentPythonPath(std::string const& exe, std::string const& buildBinDir,
                                         std::string const& buildPath, std::string const& installedDir) {
    fs::path dir = fs::path(exe).parent_path();
    std::error_code ec;
    if (!fs::equivalent(dir, buildBinDir, ec)) return {(dir / installedDir).lexically_normal().string()};
    std::vector<std::string> dirs;
    for (size_t start = 0; start <= buildPath.size();) {
        size_t end = buildPath.find(':', start);
        if (end == std::string::npos) end = buildPath.size();
        if (end > start) dirs.push_back(buildPath.substr(start, end - start));
        start = end + 1;
    }
    return dirs;
}

} // namespace Zel
