// A web server for client tests and benchmarks: nginx in the foreground on a
// free loopback port, with its configuration, document root, pid file and
// logs in a temporary directory; stopped when the object goes.
#pragma once

#include <memory>
#include <string>

#include "orvproc.hpp"
#include "orvtest.hpp"

namespace orvtest {

class Nginx {
  public:
    // Starts nginx (a few ports are tried); started() tells whether it runs.
    Nginx();
    bool started() const { return child_ != nullptr; }
    int port() const { return port_; }
    // Files written here are served as "/<name>". "/echo" answers
    // "args=<query> a=<X-A header> b=<X-B header>\n".
    std::string root() const { return dir_.file("www"); }

  private:
    TempDir dir_;
    int port_ = -1;
    std::unique_ptr<Child> child_;
};

}  // namespace orvtest
