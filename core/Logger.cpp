#include "core/Logger.h"

#include <cctype>
#include <cstdarg>
#include <ctime>

CLogger& CLogger::GetInstance()
{
    static CLogger instance;
    return instance;
}

CLogger::~CLogger() = default;  // the log file closes with its handle

void CLogger::SetLevel(int level)
{
    if (level < LOG_ALL) {
        level = LOG_ALL;
    } else if (level > LOG_OFF) {
        level = LOG_OFF;
    }
    m_level.store(level, std::memory_order_relaxed);
}

int CLogger::GetLevel() const
{
    return m_level.load(std::memory_order_relaxed);
}

bool CLogger::OpenFile(const char* path)
{
    if (m_file != nullptr || path == nullptr) {
        return false;
    }
    m_file.reset(std::fopen(path, "w"));
    return m_file != nullptr;
}

bool CLogger::CloseFile()
{
    if (m_file == nullptr) {
        return false;
    }
    m_file.reset();
    return true;
}

const char* CLogger::LevelName(int level)
{
    switch (level) {
    case LOG_ALL:
    case LOG_TRACE: return "[TRACE]";
    case LOG_INFO: return "[INFO ]";
    case LOG_DEBUG: return "[DEBUG]";
    case LOG_WARN: return "[WARN ]";
    case LOG_ERROR: return "[ERROR]";
    case LOG_FATAL: return "[FATAL]";
    default: return "[INFO ]";
    }
}

void CLogger::Log(const char* file, int line, int level, const char* format, ...)
{
    if (GetLevel() > level) {
        return;
    }
    FILE* stream = m_file != nullptr ? m_file.get() : stdout;

    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "[%04d-%02d-%02d %02d:%02d:%02d]", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);

    flockfile(stream);
    std::fputs(stamp, stream);
    std::fputs(LevelName(level), stream);
    std::fprintf(stream, "[%s:%d]\n\t", file, line);
    va_list args;
    va_start(args, format);
    std::vfprintf(stream, format, args);
    va_end(args);
    std::fflush(stream);
    funlockfile(stream);
}

int ParseLogLevel(char c)
{
    // Indexed by letter 'a'..'w'.
    static const int kLevels[23] = {
        LOG_ALL, LOG_OFF, LOG_OFF, LOG_DEBUG, LOG_ERROR, LOG_FATAL, LOG_OFF, LOG_OFF,
        LOG_INFO, LOG_OFF, LOG_OFF, LOG_OFF, LOG_OFF, LOG_OFF, LOG_OFF, LOG_OFF,
        LOG_OFF, LOG_OFF, LOG_OFF, LOG_TRACE, LOG_OFF, LOG_OFF, LOG_WARN,
    };
    const int lower = std::tolower(static_cast<unsigned char>(c));
    if (lower < 'a' || lower > 'w') {
        return LOG_OFF;
    }
    return kLevels[lower - 'a'];
}
