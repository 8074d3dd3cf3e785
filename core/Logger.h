#pragma once

#include "core/PosixHandles.h"

#include <atomic>
#include <cstdio>

// Log levels. DEBUG ranks above INFO on purpose: level 2 shows debug records
// but hides info records.
enum LogLevel {
    LOG_ALL = -1,
    LOG_TRACE = 0,
    LOG_INFO = 1,
    LOG_DEBUG = 2,
    LOG_WARN = 3,
    LOG_ERROR = 4,
    LOG_FATAL = 5,
    LOG_OFF = 6,
};

// Process-wide diagnostic log. Each record is a header line
// "[date time][LEVEL][file:line]" followed by the message indented by a tab.
// Whole records are written under one stdio stream lock, so records from
// different threads never interleave; no lock of the logger's own is taken.
class CLogger {
public:
    static CLogger& GetInstance();

    void SetLevel(int level);
    int GetLevel() const;

    bool OpenFile(const char* path);
    bool CloseFile();

    static const char* LevelName(int level);

    void Log(const char* file, int line, int level, const char* format, ...)
        __attribute__((format(printf, 5, 6)));

    CLogger(const CLogger&) = delete;
    CLogger& operator=(const CLogger&) = delete;

private:
    CLogger() = default;
    ~CLogger();

    FilePtr m_file;  // null: standard output; set only during start-up
    std::atomic<int> m_level{LOG_ALL};
};

// Logs from the calling source's own name (a `kLogSource` constant in scope)
// at the current line; LOG_AT names the line explicitly where it is fixed.
#define LOG(level, ...) CLogger::GetInstance().Log(kLogSource, __LINE__, (level), __VA_ARGS__)
#define LOG_AT(line, level, ...) CLogger::GetInstance().Log(kLogSource, (line), (level), __VA_ARGS__)

// Level for a command-line letter: a(ll) t(race) i(nfo) d(ebug) w(arn)
// e(rror) f(atal), either case; anything else switches logging off.
int ParseLogLevel(char c);
