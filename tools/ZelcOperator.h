// zelc's operator modes, on a connected client: --watch streams an
// entity's changes until Ctrl-C, --stacks prints every thread's stack.
// Each returns zelc's exit status: 0 done (Ctrl-C ends a watch), 1 the
// agent refused (its text on standard error), 2 the agent went.
#pragma once

#include <string>
#include <vector>

#include "ZelPy/PyClient.h"

namespace Zelc {

int watchMode(Zel::PyClient& client, std::string const& fullName, std::vector<std::string> const& attrs);
int stacksMode(Zel::PyClient& client);

} // namespace Zelc
