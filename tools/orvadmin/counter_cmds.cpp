// orvadmin's "counters" command: the live counters of the instance's
// registry, once, refreshed every few seconds, or in the text exposition
// format that monitoring systems scrape.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "orvadmin.hpp"
#include "orvutil/platform/counter.h"
#include "orvutil/platform/sys.h"

namespace orvadmin {
namespace {

const char *const usage = "usage: counters [-w seconds [-n count]] [object] | counters --prometheus [file]";

// One object as read at one moment.
struct Reading {
    std::string object;
    uint64_t generation = 0;
    std::vector<std::string> counters, help;
    std::vector<int> kinds;
    std::vector<std::string> instances;
    std::vector<uint64_t> values;  // instances x counters
};

// Open objects of the registry, kept between refreshes; an object whose
// file was re-created (a restarted server) or removed is opened again.
class Watch {
  public:
    ~Watch() {
        for (auto &[name, obj] : open_) counterobject_close(obj);
    }
    // Every object (or only the one called only), sorted by name. The
    // objects that cannot be read (a damaged file, or only missing) are
    // named in *error, which stays empty when all went well.
    void read(const char *only, std::vector<Reading> *out, std::string *error);

  private:
    std::map<std::string, counterobject *> open_;
};

int add_name(const char *object, void *arg) {
    static_cast<std::set<std::string> *>(arg)->insert(object);
    return 0;
}

Reading snapshot(counterobject *obj) {
    Reading r;
    r.object = counterobject_name(obj);
    r.generation = counterobject_generation(obj);
    const int n = counterobject_counters(obj);
    for (int i = 0; i < n; ++i) {
        const char *name, *help;
        int kind;
        counterobject_counterat(obj, i, &name, &kind, &help);
        r.counters.emplace_back(name);
        r.help.emplace_back(help);
        r.kinds.push_back(kind);
    }
    const int slots = counterobject_slots(obj);
    std::vector<char> buffer(static_cast<size_t>(slots) * COUNTER_NAME_SIZE);
    auto *names = reinterpret_cast<char(*)[COUNTER_NAME_SIZE]>(buffer.data());
    r.values.resize(static_cast<size_t>(slots) * static_cast<size_t>(n));
    int used = counterobject_snapshot(obj, names, r.values.data(), slots);
    if (used < 0) used = 0;
    for (int i = 0; i < used; ++i) r.instances.emplace_back(names[i]);
    r.values.resize(r.instances.size() * static_cast<size_t>(n));
    return r;
}

void Watch::read(const char *only, std::vector<Reading> *out, std::string *error) {
    out->clear();
    error->clear();
    countermsg_registry *reg = countermsg_get_registry(nullptr, 0);
    if (!reg) {
        *error = "no counter registry";
        return;
    }
    std::set<std::string> names;
    if (only)
        names.insert(only);
    else if (countermsg_list_objects(reg, add_name, &names) != 0)
        names.clear();
    for (const std::string &name : names) {
        counterobject *&obj = open_[name];
        if (obj && counterobject_changed(obj)) {
            counterobject_close(obj);
            obj = nullptr;
        }
        int status = obj ? 0 : counterobject_open(reg, name.c_str(), &obj);
        if (status == 0)
            out->push_back(snapshot(obj));
        else if (only || status != COUNTER_ENOTFOUND)  // a file removed since the listing is no news
            *error += (error->empty() ? "" : "; ") + name + ": " + counter_strerror(status);
    }
    countermsg_free_registry(reg);
}

// Value as text: gauges are signed.
std::string value_text(const Reading &r, size_t instance, size_t counter) {
    uint64_t v = r.values[instance * r.counters.size() + counter];
    char text[32];
    if (r.kinds[counter] == COUNTER_KIND_GAUGE)
        std::snprintf(text, sizeof text, "%" PRId64, static_cast<int64_t>(v));
    else
        std::snprintf(text, sizeof text, "%" PRIu64, v);
    return text;
}

// Earlier values for rates: by object, generation, instance and counter.
using Earlier = std::map<std::string, uint64_t>;

void print(const std::vector<Reading> &readings, Earlier *earlier, double seconds) {
    Earlier now;
    for (const Reading &r : readings) {
        for (size_t i = 0; i < r.instances.size(); ++i) {
            for (size_t c = 0; c < r.counters.size(); ++c) {
                std::string line = r.object + "[" + r.instances[i] + "]." + r.counters[c];
                std::string text = value_text(r, i, c);
                if (earlier && r.kinds[c] == COUNTER_KIND_COUNT) {
                    std::string key = line + "#" + std::to_string(r.generation);
                    uint64_t v = r.values[i * r.counters.size() + c];
                    now[key] = v;
                    auto before = earlier->find(key);
                    if (before != earlier->end() && seconds > 0 && v >= before->second) {
                        char rate[48];
                        std::snprintf(rate, sizeof rate, " (%.1f/s)", double(v - before->second) / seconds);
                        text += rate;
                    }
                }
                out("%s = %s\n", line.c_str(), text.c_str());
            }
        }
    }
    if (earlier) *earlier = std::move(now);
}

// Metric names keep [a-zA-Z0-9_:] and start with a letter or '_'.
std::string metric_name(const std::string &object, const std::string &counter, int kind) {
    std::string name = "orv_" + object + "_" + counter;
    for (char &ch : name)
        if (!((ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || (ch >= '0' && ch <= '9') || ch == '_')) ch = '_';
    return kind == COUNTER_KIND_COUNT ? name + "_total" : name;
}

// Escapes for HELP texts (backslash, line end) and label values (also '"').
std::string escaped(const std::string &text, bool label) {
    std::string outp;
    for (char ch : text) {
        if (ch == '\\')
            outp += "\\\\";
        else if (ch == '\n')
            outp += "\\n";
        else if (ch == '"' && label)
            outp += "\\\"";
        else
            outp += ch;
    }
    return outp;
}

std::string exposition(const std::vector<Reading> &readings) {
    std::string text;
    std::set<std::string> seen;
    for (const Reading &r : readings) {
        for (size_t c = 0; c < r.counters.size(); ++c) {
            std::string name = metric_name(r.object, r.counters[c], r.kinds[c]);
            // Two counters may sanitise to one name; a family appears once.
            if (!seen.insert(name).second) continue;
            if (!r.help[c].empty()) text += "# HELP " + name + " " + escaped(r.help[c], false) + "\n";
            text += "# TYPE " + name + (r.kinds[c] == COUNTER_KIND_COUNT ? " counter\n" : " gauge\n");
            for (size_t i = 0; i < r.instances.size(); ++i)
                text += name + "{instance=\"" + escaped(r.instances[i], true) + "\"} " + value_text(r, i, c) + "\n";
        }
    }
    return text;
}

// Written whole under a temporary name, then renamed over file: a scraper
// never reads half a file.
bool write_atomically(const std::string &file, const std::string &text) {
    std::string temp = file + "." + std::to_string(getpid()) + ".tmp";
    int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ok = close(fd) == 0 && ok && rename(temp.c_str(), file.c_str()) == 0;
    if (!ok) unlink(temp.c_str());
    return ok;
}

bool positive(const char *text, long *value) {
    char *end = nullptr;
    *value = std::strtol(text, &end, 10);
    return *text && !*end && *value > 0 && *value <= 86400 * 365;
}

}  // namespace

int cmd_counters(int argc, char **argv) {
    long seconds = 0, count = 0;
    const char *object = nullptr;
    bool prometheus = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "-w" && i + 1 < argc && positive(argv[i + 1], &seconds)) {
            ++i;
        } else if (arg == "-n" && i + 1 < argc && positive(argv[i + 1], &count)) {
            ++i;
        } else if (arg == "--prometheus" && !prometheus) {
            prometheus = true;
        } else if (arg[0] != '-' && !object) {
            object = argv[i];
        } else {
            return fail(argv[0], "%s", usage);
        }
    }
    if ((prometheus && (seconds || count)) || (count && !seconds)) return fail(argv[0], "%s", usage);

    Watch watch;
    std::vector<Reading> readings;
    std::string error;
    if (prometheus) {
        // What can be read is written even when some object cannot.
        watch.read(nullptr, &readings, &error);
        std::string text = exposition(readings);
        if (!object) {
            out("%s", text.c_str());
        } else if (!write_atomically(object, text)) {
            return fail(argv[0], "cannot write %s", object);
        }
        return error.empty() ? 0 : fail(argv[0], "%s", error.c_str());
    }
    if (!seconds) {
        watch.read(object, &readings, &error);
        print(readings, nullptr, 0);
        return error.empty() ? 0 : fail(argv[0], "%s", error.c_str());
    }
    // Refreshed until interrupted, or count times. A missing registry or
    // object (a server between two lives) is reported and waited for.
    Earlier earlier;
    auto last = std::chrono::steady_clock::now();
    bool tty = isatty(1) != 0;
    for (long n = 1; count == 0 || n <= count; ++n) {
        if (n > 1) sleep_seconds(static_cast<unsigned>(seconds));
        auto now = std::chrono::steady_clock::now();
        watch.read(object, &readings, &error);
        if (tty) out("\033[H\033[2J");
        out("--- refresh %ld, every %ld s\n", n, seconds);
        print(readings, &earlier, std::chrono::duration<double>(now - last).count());
        if (!error.empty()) out("(%s)\n", error.c_str());
        last = now;
    }
    return 0;
}

}  // namespace orvadmin
