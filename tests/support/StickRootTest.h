#pragma once

#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace testing_support {

// A test whose first stick lies under a temporary USBMEDIA_ROOT, for code
// that reads only from the sticks: the folder is made, and the variable is
// set for the test and cleared after it.
class StickRootTest : public testing::Test {
protected:
    void SetUp() override
    {
        MakeDirs(Stick());
        setenv("USBMEDIA_ROOT", m_dir.Path().c_str(), 1);
    }
    void TearDown() override { unsetenv("USBMEDIA_ROOT"); }

    std::string Stick() const { return m_dir / "mnt/usb-stick1"; }

    TempDir m_dir;
};

}  // namespace testing_support
