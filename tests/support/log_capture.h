// A log record that collects messages, for tests that compare them.
#pragma once

#include <qiven/log.h>

#include <string>
#include <vector>

// One at a time: log functions take no context, so the lines are collected in static storage.
class LogCapture {
  public:
    LogCapture() {
        Lines().clear();
        QIVENLogFuncSet(&m_log, QIVEN_LOG_ERR, [](const char *sz) { return Keep(1, sz); });
        QIVENLogFuncSet(&m_log, QIVEN_LOG_DEBUG, [](const char *sz) { return Keep(2, sz); });
    }
    QIVEN_LOG *Record() { return &m_log; }

    // Messages since the last call, each as "level|text", with "#" for the line number after the module name.
    static std::vector<std::string> Take() {
        std::vector<std::string> taken;
        taken.swap(Lines());
        return taken;
    }

    // Keeps one message.
    static int Keep(int iLevel, const char *szMessage) {
        std::string text = szMessage;
        const size_t nColon = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_/");
        const size_t nEnd = text.find_first_not_of("0123456789", nColon + 1);
        const bool blHasLine = nColon != std::string::npos && nColon > 0 && text[nColon] == ':' &&
                               nEnd != std::string::npos && nEnd > nColon + 1 && text[nColon + 1] != '0' &&
                               text[nEnd] == ' ';
        if (blHasLine) text.replace(nColon + 1, nEnd - nColon - 1, "#");
        Lines().push_back(std::to_string(iLevel) + "|" + text);
        return 0;
    }

  private:
    static std::vector<std::string> &Lines() {
        static std::vector<std::string> lines;
        return lines;
    }
    QIVEN_LOG m_log{};
};

// The report of a failed argument check, as LogCapture::Take() shows it.
inline std::string Invalid(const std::string &module, const std::string &condition) {
    return "1|" + module + ":# Invaild Argument (" + condition + ")=[0]\n";
}
