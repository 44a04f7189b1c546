#pragma once

#include "drivers/LinFiles.h"
#include "drivers/LinManage.h"
#include "net/NetNamespace.h"

#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

// An owner of the LIN channels whose character devices are files.
class LinManageTest : public testing::Test {
  protected:
    using Bytes = std::vector<uint8_t>;
    using LinManage = Drivers::LinManage;

    LinManageTest() {
        Forget();
        testing::internal::CaptureStdout();
        lin = std::make_unique<LinManage>(files.Prefix());
        made = testing::internal::GetCapturedStdout();
    }
    ~LinManageTest() override {
        testing::internal::CaptureStdout();
        lin.reset();
        testing::internal::GetCapturedStdout();
        Forget();
    }

    static void Forget() {
        LinManage::statusMask = 0;
        for (size_t ch = 0; ch < 2; ++ch) {
            LinManage::chrDevFd[ch] = 0;
            LinManage::mappedMemory[ch] = nullptr;
        }
    }

    // A network in which the only device is called so.
    void Network(const std::string& name) {
        alone = std::make_unique<NetNamespace>();
        ASSERT_TRUE(alone->Entered()) << "this test needs the right to make a network namespace";
        ASSERT_TRUE(alone->RenameLoopback(name));
    }

    // What `work` prints.
    template <typename Work> static std::string Told(const Work& work) {
        testing::internal::CaptureStdout();
        work();
        return testing::internal::GetCapturedStdout();
    }

    static lin_operation Config(uint32_t bitrate) {
        lin_operation op{};
        op.data.config.lversion = LIN_2_2;
        op.data.config.psupply = EXTERNAL;
        op.data.config.bitrate = bitrate;
        return op;
    }

    static void Rewind(size_t ch) { lseek(LinManage::chrDevFd[ch], 0, SEEK_SET); }

    LinFiles files;
    std::unique_ptr<NetNamespace> alone;
    std::unique_ptr<LinManage> lin;
    std::string made;
};
