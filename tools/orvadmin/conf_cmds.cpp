// orvadmin's "conf" command: list, read and edit a configuration file.
// Edits are written back with the safe rewrite (temporary file and rename).
#include <cstring>
#include <string>

#include "orvadmin.hpp"
#include "orvutil/cal_conf.h"
#include "orvutil/platform/array.h"

namespace orvadmin {
namespace {

// Closes a handle that may not have been written; frees it in every case.
void discard(calconf_handle *&handle) {
    if (handle && calconf_CloseQuick(&handle, 1) != 0) calconf_Close(&handle, 1);
}

int list(calconf_handle *h) {
    int n = array_count(h->names);
    for (int i = 0; i < n; ++i) out("%s = %s\n", strarray_elementat(h->names, i), strarray_elementat(h->values, i));
    return 0;
}

}  // namespace

int cmd_conf(int argc, char **argv) {
    const char *usage = "usage: conf list|get|set|del file [name [value]]";
    std::string op = argv[1];
    int need = op == "list" ? 3 : op == "get" || op == "del" ? 4 : op == "set" ? 5 : 0;
    if (need == 0 || argc < need) return fail("conf", "%s", usage);
    const char *file = argv[2];

    calconf_handle *h = nullptr;
    if (calconf_Open(file, &h) != 0 && op != "set") {
        discard(h);
        return fail("conf", "cannot read %s", file);
    }
    if (!h) return fail("conf", "out of memory");
    int r = 0;
    if (op == "list") {
        r = list(h);
    } else if (op == "get") {
        const char *value = calconf_Get(h, argv[3]);
        if (value)
            out("%s = %s\n", argv[3], value);
        else
            r = fail("conf", "%s is not set in %s", argv[3], file);
    } else if (op == "set" || op == "del") {
        int edit = op == "set" ? calconf_Modify(h, argv[3], argv[4]) : calconf_Delete(h, argv[3], 2);
        if (edit == 1) {
            r = fail("conf", "%s is not set in %s", argv[3], file);
        } else if (edit != 0) {
            r = fail("conf", "%s cannot be written as a name", argv[3]);
        } else if (calconf_CloseQuick(&h, 0) != 0) {
            r = fail("conf", "cannot write %s", file);
        } else if (op == "set") {
            out("%s = %s\n", argv[3], argv[4]);
        } else {
            out("deleted %s\n", argv[3]);
        }
    }
    discard(h);
    return r;
}

}  // namespace orvadmin
