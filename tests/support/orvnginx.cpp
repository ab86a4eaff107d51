#include "orvnginx.hpp"

#include <sys/stat.h>

namespace orvtest {

Nginx::Nginx() {
    const std::string nginx = find_program("nginx"), dir = dir_.path();
    if (nginx.empty()) return;
    mkdir(root().c_str(), 0755);
    mkdir(dir_.file("tmp").c_str(), 0755);
    for (int attempt = 0; attempt < 3 && !child_; ++attempt) {
        port_ = free_port();
        const std::string tmp = dir + "/tmp;\n";
        write_file(dir_.file("nginx.conf"),
                   "daemon off;\nmaster_process off;\npid " + dir + "/nginx.pid;\nerror_log " + dir +
                       "/error.log;\nevents { worker_connections 256; }\nhttp {\n access_log off;\n" +
                       " client_body_temp_path " + tmp + " proxy_temp_path " + tmp + " fastcgi_temp_path " + tmp +
                       " uwsgi_temp_path " + tmp + " scgi_temp_path " + tmp +
                       " server {\n  listen 127.0.0.1:" + std::to_string(port_) + ";\n  root " + root() + ";\n" +
                       "  location = /echo { return 200 \"args=$args a=$http_x_a b=$http_x_b\\n\"; }\n }\n}\n");
        child_ = std::make_unique<Child>(
            std::vector<std::string>{nginx, "-e", dir + "/error.log", "-p", dir, "-c", dir_.file("nginx.conf")},
            Child::Options{{}, dir_.file("out.log"), ""});
        if (!wait_for_port(port_, std::chrono::seconds(20)) || !child_->running()) child_.reset();
    }
}

}  // namespace orvtest
