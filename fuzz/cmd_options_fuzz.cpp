// The option parser: a command line (arguments separated by NULs) with
// every option group on and a tool option of its own ("-x value", "--" to
// end). Whatever it accepts, no setting it kept starts with '-' (a backup
// or restore path taken with its id may) and a port it kept is a positive
// number.
#include <orvutil/cal_cmd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "fuzz_io.hpp"

namespace {

int tool_option(char **argv, int argc, int *index) {
    if (std::strcmp(argv[*index], "--") == 0) return CALCMD_OPTIONS_DONE;
    if (std::strcmp(argv[*index], "-x") != 0) return CALCMD_E_UNRECOGNISED;
    if (*index + 1 < argc) ++*index;
    return CALCMD_OK;
}

bool dashed(const char *setting) { return setting != nullptr && setting[0] == '-'; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_io::quiet_setup();
    std::vector<std::string> args{"fuzz"};
    const std::string text(reinterpret_cast<const char *>(data), size);
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\0', at), text.size());
        args.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    std::vector<char *> argv;
    for (std::string &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);

    calcmd_tool *tool = nullptr;
    if (calcmd_Init(&tool, "fuzz", "", static_cast<int>(args.size()), argv.data(), 0, 0, tool_option, nullptr, nullptr,
                    nullptr, nullptr, nullptr) != 0)
        abort();
    calcmd_EnableAdmin(tool, "admin", "secret");
    calcmd_EnableHost(tool, "localhost", "80");
    calcmd_EnableAdminPort(tool, "8080");
    calcmd_EnableBackup(tool, 1, nullptr, nullptr);
    if (calcmd_Ops(tool) == CALCMD_OK) {
        int given = 0, admin_given = 0;
        const char *port = calcmd_GetPort(tool, &given), *admin_port = calcmd_GetAdminPort(tool, &admin_given);
        for (const char *s :
             std::initializer_list<const char *>{calcmd_GetHost(tool), port, admin_port, calcmd_GetAdmin(tool),
                                                 calcmd_GetPassword(tool), tool->scriptPath})
            if (dashed(s)) abort();
        if ((given && std::atoi(port) <= 0) || (admin_given && std::atoi(admin_port) <= 0)) abort();
    }
    calcmd_Exit(&tool);
    return 0;
}
