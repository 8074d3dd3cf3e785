// usb-media-ctl: drives the USB media service from a terminal.
#include "tools/Cli.h"

#include <unistd.h>

#include <iostream>

int main(int argc, char** argv)
{
    const std::vector<std::string> args(argv + 1, argv + argc);
    return usbctl::RunCommandLine(args, std::cout, std::cerr, isatty(STDOUT_FILENO) == 1);
}
