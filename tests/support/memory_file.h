// A file that lives in memory and has a path, for readers of streams and for readers that open by name.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>

class MemoryFile {
  public:
    explicit MemoryFile(std::string_view text) : m_fd(memfd_create("memory-file", MFD_CLOEXEC)) {
        if (m_fd == -1 || write(m_fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
            throw std::runtime_error("no memory file");
        m_pf = fopen(Path().c_str(), "re");
        if (m_pf == nullptr) throw std::runtime_error("memory file cannot be opened");
    }
    ~MemoryFile() {
        if (m_pf != nullptr) fclose(m_pf);
        close(m_fd);
    }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    FILE *Stream() const { return m_pf; }
    std::string Path() const { return "/proc/self/fd/" + std::to_string(m_fd); }

  private:
    int m_fd;
    FILE *m_pf = nullptr;
};
