// zelpy-client-example PREFIX.NAME EXPRESSION
//
// Evaluates a Python expression in the agent PREFIX.NAME (its agent file
// in $ZELC_AGENTS_DIR, else /var/run/agents) and prints the result.
#include <iostream>
#include <string>

#include "Zel/Exception.h"
#include "ZelPy/PyClient.h"

int main(int argc, char** argv) {
    std::string agent = argc == 3 ? argv[1] : "";
    size_t dot = agent.find('.');
    if (dot == std::string::npos) {
        std::cerr << "usage: zelpy-client-example PREFIX.NAME EXPRESSION" << std::endl;
        return 2;
    }
    try {
        Zel::PyClient client(Zel::String8(agent.substr(0, dot)), Zel::String8(agent.substr(dot + 1)), 'P', nullptr,
                             nullptr);
        client.connect();
        std::cout << client.evalWhole(argv[2]).c_str() << std::endl;
        return 0;
    } catch (Zel::Exception const& e) {
        std::cerr << "zelpy-client-example: " << e.message() << std::endl;
        return 1;
    }
}
