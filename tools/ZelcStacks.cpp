// zelc --stacks: the Python stack of every thread of the agent (see
// ZelcOperator.h).
#include <iostream>

#include "ZelcOperator.h"
#include "Zel/Exception.h"

namespace Zelc {

int stacksMode(Zel::PyClient& client) {
    try {
        std::cout << client.stacks().view() << std::flush;
        return 0;
    } catch (Zel::RpcConnectionException const& e) {
        std::cerr << "zelc: " << e.message() << std::endl;
        return 2;
    } catch (Zel::RpcException const& e) {
        std::cerr << e.message();
        if (e.message().empty() || e.message().view().back() != '\n') std::cerr << '\n';
        return 1;
    }
}

} // namespace Zelc
