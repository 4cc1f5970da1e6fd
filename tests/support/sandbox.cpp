#include "support/sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace sandbox {

namespace {

[[noreturn]] void Fail(const std::string &what) {
    throw std::runtime_error("sandbox: " + what);
}
void Demand(bool ok, const std::string &what) {
    if (!ok) Fail(what + ": " + strerror(errno));
}

// Maps the caller to root, so that it may mount and configure interfaces in its namespaces.
void UnshareAsUser() {
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    Demand(unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0,
           "this machine lets user " + user + " make no namespaces (be root, or allow them)");
    WriteFile("/proc/self/setgroups", "deny");
    WriteFile("/proc/self/uid_map", "0 " + user + " 1");
    WriteFile("/proc/self/gid_map", "0 " + group + " 1");
}

void MountSys() {
    Demand(mount("sysfs", "/sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0, "mount /sys");
}

int OpenOwn(const char *szKind) {
    const int fd = open((std::string("/proc/self/ns/") + szKind).c_str(), O_RDONLY | O_CLOEXEC);
    Demand(fd != -1, "open namespace");
    return fd;
}

std::string ReadAll(int fd) {
    std::string text;
    std::array<char, 4096> chunk{};
    for (ssize_t cb = 0; (cb = read(fd, chunk.data(), chunk.size())) > 0;)
        text.append(chunk.data(), static_cast<size_t>(cb));
    return text;
}

// The original mounts, made private, with which each Enter() starts. Returns their namespace.
int MakeBase() {
    if (unshare(CLONE_NEWNS) != 0) {
        Demand(errno == EPERM, "make a mount namespace");
        UnshareAsUser();
    }
    Demand(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "make mounts private");
    return OpenOwn("mnt");
}

}  // namespace

void Enter() {
    static const int fdBase = MakeBase();
    const auto directory = std::filesystem::current_path();
    Demand(setns(fdBase, CLONE_NEWNS) == 0, "leave the machine before");
    Demand(unshare(CLONE_NEWNS | CLONE_NEWNET) == 0,
           "this machine allows no more mount or network namespaces");
    std::filesystem::current_path(directory);  // setns went to the root directory
    MountSys();
    // Without IPv6 the kernel sends nothing on a link by itself.
    for (const std::string scope : {"all", "default"}) {
        const std::string path = "/proc/sys/net/ipv6/conf/" + scope + "/disable_ipv6";
        if (std::filesystem::exists(path)) WriteFile(path, "1");
    }
    Run("ip link set lo up");
}

void PrivateDir(const std::string &path) {
    Demand(mount("tmpfs", path.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=755,size=64m") == 0,
           "mount " + path);
}

std::string Run(const std::string &command) {
    // Includes /usr/sbin in the path for ordinary users.
    const std::string line = "PATH=$PATH:/usr/sbin:/sbin; { " + command + "\n} 2>&1 </dev/null";
    // NOLINTNEXTLINE(cert-env33-c): running a shell is intended.
    FILE *pfPipe = popen(line.c_str(), "re");
    Demand(pfPipe != nullptr, "popen");
    const std::string output = ReadAll(fileno(pfPipe));
    const int status = pclose(pfPipe);
    if (status != 0) Fail("'" + command + "' failed (status " + std::to_string(status) + "): " + output);
    return output;
}

void WriteFile(const std::string &path, const std::string &text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream file(path, std::ios::binary);
    file << text << std::flush;
    Demand(file.good(), "write " + path);
}

std::string ReadFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    Demand(file.good(), "open " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

void AddEthernet(const std::string &name, const std::string &mac, const std::string &address) {
    // Kernels support one of these kinds of interfaces, or both.
    Run("ip link add " + name + " address " + mac + " type dummy || ip link add " + name + " address " + mac +
        " type ifb");
    if (!address.empty()) Run("ip address add " + address + " dev " + name);
    Run("ip link set " + name + " up");
}

}  // namespace sandbox
