// A log record that keeps what it is told, for tests that compare messages.
#pragma once

#include <qiven/log.h>

#include <regex>
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

    // Messages since the last call, each as "level|text", with the line number behind the room name as "#".
    static std::vector<std::string> Take() {
        std::vector<std::string> taken;
        taken.swap(Lines());
        return taken;
    }

  private:
    static std::vector<std::string> &Lines() {
        static std::vector<std::string> lines;
        return lines;
    }
    static int Keep(int iLevel, const char *szMessage) {
        static const std::regex reLine("^([a-z0-9_/]+):[1-9][0-9]* ");
        Lines().push_back(std::to_string(iLevel) + "|" + std::regex_replace(szMessage, reLine, "$1:# "));
        return 0;
    }
    QIVEN_LOG m_log{};
};

// The report of a failed argument check, as LogCapture::Take() shows it.
inline std::string Invalid(const std::string &room, const std::string &condition) {
    return "1|" + room + ":# Invaild Argument (" + condition + ")=[0]\n";
}
