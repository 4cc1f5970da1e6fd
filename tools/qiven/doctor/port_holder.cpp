#include "doctor/port_holder.h"

#include <fmt/format.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <vector>

#include "output/text.h"

namespace qiven::doctor {

namespace {

namespace fs = std::filesystem;

// Inode numbers of the sockets that are bound to the port.
std::set<std::string> SocketsOn(uint16_t usPort) {
    std::set<std::string> sockets;
    const std::string suffix = fmt::format(":{:04X}", usPort);
    for (const char *szPath : {"/proc/net/udp", "/proc/net/udp6"}) {
        std::ifstream file(szPath);
        std::string line;
        std::getline(file, line);
        while (std::getline(file, line)) {
            std::istringstream stream(line);
            std::vector<std::string> words;
            for (std::string word; stream >> word;)
                words.push_back(word);
            if (words.size() > 9 && words[1].ends_with(suffix)) sockets.insert("socket:[" + words[9] + "]");
        }
    }
    return sockets;
}

bool HoldsOne(const fs::path &process, const std::set<std::string> &sockets) {
    std::error_code error;
    for (fs::directory_iterator at(process / "fd", error), end; !error && at != end; at.increment(error)) {
        std::error_code gone;
        if (sockets.count(fs::read_symlink(at->path(), gone).string()) != 0) return true;
    }
    return false;
}

}  // namespace

std::string HolderOf(uint16_t usPort) {
    const std::set<std::string> sockets = SocketsOn(usPort);
    std::string holders;
    std::error_code error;
    for (fs::directory_iterator at("/proc", error), end; !error && at != end; at.increment(error)) {
        const std::string pid = at->path().filename();
        if (pid.find_first_not_of("0123456789") != std::string::npos) continue;
        if (sockets.empty() || pid == std::to_string(getpid()) || !HoldsOne(at->path(), sockets)) continue;
        std::string program;
        std::ifstream file(at->path() / "comm");
        std::getline(file, program);
        holders += fmt::format("{}process {} ({})", holders.empty() ? "" : ", ", pid, text::Escape(program));
    }
    return holders.empty() ? "an unknown process (try again as root)" : holders;
}

bool IsHeldAlone(uint16_t usPort) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd == -1) return false;
    const int iOn = 1;
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(usPort);
    const bool blRefused = setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &iOn, sizeof iOn) == 0 &&
                           bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) != 0 &&
                           errno == EADDRINUSE;
    close(fd);
    return blRefused && !SocketsOn(usPort).empty();
}

}  // namespace qiven::doctor
