// A file in memory that has a path, for functions that read streams and functions that open files by name.
#pragma once

#include <sys/mman.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>

class MemoryFile {
  public:
    explicit MemoryFile(std::string_view text)
        : m_pf(fdopen(memfd_create("memory-file", MFD_CLOEXEC), "w+")) {
        if (m_pf == nullptr || fwrite(text.data(), 1, text.size(), m_pf) != text.size())
            throw std::runtime_error("no memory file");
        rewind(m_pf);
    }
    ~MemoryFile() { fclose(m_pf); }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    FILE *Stream() const { return m_pf; }
    std::string Path() const { return "/proc/self/fd/" + std::to_string(fileno(m_pf)); }

  private:
    FILE *m_pf;
};
