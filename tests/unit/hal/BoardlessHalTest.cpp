#include "hal/DevMemRegAccess.h"
#include "hal/GpiolibHalGpio.h"
#include "hal/HalFactory.h"
#include "hal/KernelMachine.h"

#include <gtest/gtest.h>

namespace {

// An address that is not a multiple of the page size cannot be mapped, with or without /dev/mem.
constexpr off_t kUnmappable = 0x81000001;

TEST(DevMemRegAccess, ABlockThatCannotBeMappedAnswersMinusOne) {
    Hal::DevMemRegAccess block(kUnmappable, 4096);
    uint32_t value = 7;
    bool bit = false;
    EXPECT_FALSE(block.isValid());
    EXPECT_EQ(block.Write(0, 1), -1);
    EXPECT_EQ(block.Read(0, value), -1);
    EXPECT_EQ(block.WriteBit(0, 0, true), -1);
    EXPECT_EQ(block.ReadBit(0, 0, bit), -1);
    EXPECT_EQ(block.WriteRegion(0, 0, 7, 1), -1);
    EXPECT_EQ(block.ReadRegion(0, 0, 7, value), -1);
    EXPECT_EQ(value, 7U);
}

TEST(GpiolibHalGpio, AnUnknownChipAnswersMinusOne) {
    Hal::GpiolibHalGpio chip("gpiochip-that-is-not-there");
    int level = 7;
    EXPECT_EQ(chip.Write(28, 1), -1);
    EXPECT_EQ(chip.Read(28, level), -1);
    EXPECT_EQ(level, 7);
}

TEST(HalFactory, YieldsTheBoardsClassesUnlessTold) {
    Hal::SetHalMakers({});
    EXPECT_NE(std::dynamic_pointer_cast<Hal::DevMemRegAccess>(Hal::MakeRegAccess(kUnmappable, 16)),
              nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<Hal::GpiolibHalGpio>(Hal::MakeGpio("none")), nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<Hal::KernelMachine>(Hal::MakeMachine()), nullptr);
}

} // namespace
