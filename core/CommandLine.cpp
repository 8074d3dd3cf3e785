#include "core/CommandLine.h"

#include "core/Logger.h"

#include <cstring>

void ApplyCommandLine(int argc, char** argv, std::string& address)
{
    CLogger& logger = CLogger::GetInstance();
    for (int i = 1; i < argc; ++i) {
        const char* argument = argv[i];
        const bool hasValue = i + 1 < argc;
        if (std::strncmp(argument, "-a", 2) == 0) {
            if (hasValue) {
                address = argv[i + 1];
            }
        } else if (std::strncmp(argument, "-l", 2) == 0) {
            if (hasValue) {
                logger.SetLevel(ParseLogLevel(argv[i + 1][0]));
            }
        } else if (std::strncmp(argument, "--disable-logging", 17) == 0) {
            logger.SetLevel(LOG_OFF);
        } else if (std::strncmp(argument, "--stdout", 8) == 0) {
            logger.CloseFile();
        }
    }
}
