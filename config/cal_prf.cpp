// Profiling files: unique numbered files, clearing and aggregation.
#include "orvutil/cal_prf.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <plstr.h>
#include <prio.h>
#include <prprf.h>
#include <prsystem.h>

#include "cal_fileio.hpp"
#include "orvutil/cal_file.h"

namespace {

constexpr int kLastNumber = 9999;  // numbers are cut to four digits beyond

PRFileDesc *standard_output() { return PR_GetSpecialFD(PR_StandardOutput); }
PRFileDesc *standard_error() { return PR_GetSpecialFD(PR_StandardError); }

// A private copy of path in local form.
std::string local_path(const char *path) {
    std::string copy(path);
    calfile_ToLocalPath(copy.data());
    return copy;
}

struct PrCloser {
    void operator()(PRFileDesc *fd) const { PR_Close(fd); }
};
using PrFile = std::unique_ptr<PRFileDesc, PrCloser>;

bool is_prf(const std::string &name) { return name.find(".prf") != std::string::npos; }

}  // namespace

extern "C" {

PRFileDesc *calprf_GetUniqueFileDesc(const char *directory, const char *prefix) noexcept {
    if (directory == nullptr) return standard_output();
    char path[CALPRF_PATH_SIZE] = {};
    const char separator[2] = {PR_GetDirectorySeparator(), '\0'};
    const int base = std::snprintf(path, sizeof path, "%s%s%s", directory, separator,
                                   prefix != nullptr && *prefix != '\0' ? prefix : "calprf");
    if (base < 0 || static_cast<size_t>(base) >= sizeof path) return standard_output();

    bool found = false;
    for (int n = 0; n <= kLastNumber && !found; ++n) {
        char number[5];
        if (PR_snprintf(number, sizeof number, "%i", n) == static_cast<PRUint32>(-1)) break;
        const int len = std::snprintf(path + base, sizeof path - static_cast<size_t>(base), "%s.prf", number);
        if (len < 0 || static_cast<size_t>(base + len) >= sizeof path) break;
        found = PR_Access(path, PR_ACCESS_EXISTS) != PR_SUCCESS;
    }
    if (!found) return standard_output();
    calfile_ToLocalPath(path);
    PRFileDesc *fd = PR_Open(path, PR_RDWR | PR_CREATE_FILE | PR_SYNC, 0xfff);
    return fd != nullptr ? fd : standard_output();
}

void calprf_Initialize(const char *directory, int verbose) noexcept {
    if (directory == nullptr) return;
    try {
        const std::string dir = local_path(directory);
        if (verbose) PR_fprintf(standard_error(), "calprf: Nuking prf files in directory %s\n", dir.c_str());
        for (const std::string &name : orvcfg::list_dir(dir.c_str(), PR_SKIP_BOTH)) {
            if (!is_prf(name)) continue;
            if (verbose) PR_fprintf(standard_error(), "calprf: Nuking prf files %s\n", name.c_str());
            calfile_DeleteSourceFile(name.c_str(), dir.c_str());
        }
    } catch (const std::bad_alloc &) {
        // Nothing is reported to the caller.
    }
}

void calprf_Aggregate(const char *directory, const char *target, int verbose) noexcept {
    if (directory == nullptr || target == nullptr) return;
    try {
        const std::string out_path = local_path(target);
        PRFileInfo64 info;
        if (PR_GetFileInfo64(out_path.c_str(), &info) == PR_SUCCESS && info.type != PR_FILE_FILE) return;
        const PrFile out(PR_Open(out_path.c_str(), PR_RDWR | PR_CREATE_FILE | PR_APPEND, 0xfff));
        if (out == nullptr) return;
        if (verbose) PR_fprintf(standard_error(), "calprf: Aggregating prf files to file %s\n", out_path.c_str());

        const std::string dir = local_path(directory);
        std::vector<std::string> names;
        PRDir *probe = PR_OpenDir(dir.c_str());
        if (probe != nullptr) {
            PR_CloseDir(probe);
            if (verbose) PR_fprintf(standard_error(), "calprf: Aggregating prf files in directory %s\n", dir.c_str());
            names = orvcfg::list_dir(dir.c_str(), PR_SKIP_BOTH);
            names.erase(std::remove_if(names.begin(), names.end(), [](const std::string &n) { return !is_prf(n); }),
                        names.end());
            // NSPR's order (letters fold upper case), not strcasecmp's.
            std::sort(names.begin(), names.end(), [](const std::string &a, const std::string &b) {
                return PL_strcasecmp(a.c_str(), b.c_str()) < 0;
            });
        }
        for (const std::string &name : names) {
            // The bare name, relative to the current directory.
            const PrFile in(PR_Open(name.c_str(), PR_RDONLY, 0));
            if (in == nullptr) continue;
            PRFileInfo file_info;
            if (PR_GetFileInfo(name.c_str(), &file_info) == PR_SUCCESS) {
                if (verbose) PR_fprintf(standard_error(), "calprf: Sucking in file %s\n", name.c_str());
                orvcfg::copy_bytes(in.get(), out.get(), file_info.size);
            }
        }
    } catch (const std::bad_alloc &) {
        // Nothing is reported to the caller.
    }
}

}  // extern "C"
