#include "drivers/DevManager.h"

#include "versions/KestroProEthPhyConfig.h"
#include "versions/VersionManager.h"

#include <gtest/gtest.h>

namespace {

const Drivers::DevManager& Names() {
    return Drivers::DevManager::GetInstance();
}

TEST(DevManager, NamesTheSixCanChannels) {
    EXPECT_EQ(Names().GetCanDevName(0), "ncan0");
    EXPECT_EQ(Names().GetCanDevName(1), "ncan1");
    EXPECT_EQ(Names().GetCanDevName(2), "ncan2");
    EXPECT_EQ(Names().GetCanDevName(3), "ncan3");
    EXPECT_EQ(Names().GetCanDevName(4), "ncan4");
    EXPECT_EQ(Names().GetCanDevName(5), "ncan5");
}

TEST(DevManager, HasNoNameForOtherCanChannels) {
    EXPECT_EQ(Names().GetCanDevName(-1), "");
    EXPECT_EQ(Names().GetCanDevName(6), "");
    EXPECT_EQ(Names().GetCanDevName(7), "");
}

TEST(DevManager, NamesTheTwoLinChannels) {
    EXPECT_EQ(Names().GetLinDevName(0), "LIN0");
    EXPECT_EQ(Names().GetLinDevName(1), "LIN1");
    EXPECT_EQ(Names().GetLinDevName(2), "");
    EXPECT_EQ(Names().GetLinDevName(-1), "");
}

TEST(DevManager, HasNoEthernetNameOnABoardWithoutEthernet) {
    EXPECT_EQ(Names().GetEthDevName(0, false), "");
    EXPECT_EQ(Names().GetEthDevName(0, true), "");
}

class TwoChannelBoard : public KestroProEthPhyConfig {
  public:
    explicit TwoChannelBoard(int channels) : channels_(channels) {}
    int GetMaxEthChannel() const override { return channels_; }
    std::vector<std::pair<std::string, std::string>> GetDevNames() const override {
        return {{"a0", "b0"}, {"a1", "b1"}};
    }

  private:
    int channels_;
};

class DevManagerEthTest : public testing::Test {
  protected:
    static void UseBoard(int channels) {
        VersionManager::GetInstance().ReplaceBoard(
            {nullptr, std::make_shared<TwoChannelBoard>(channels), nullptr, nullptr});
    }

    void TearDown() override {
        VersionManager::GetInstance().ReplaceBoard({nullptr, shipped_, nullptr, nullptr});
    }

  private:
    std::shared_ptr<EthPhyConfig> shipped_ = VersionManager::GetInstance().GetEthPhyConfig();
};

TEST_F(DevManagerEthTest, SecondPicksTheSecondNameOfAChannel) {
    UseBoard(2);
    EXPECT_EQ(Names().GetEthDevName(1, false), "a1");
    EXPECT_EQ(Names().GetEthDevName(1, true), "b1");
    EXPECT_EQ(Names().GetEthDevName(2, true), "");
    EXPECT_EQ(Names().GetEthDevName(-1, true), "");
}

TEST_F(DevManagerEthTest, AChannelThatTheBoardCountsAndDoesNotNameHasNoName) {
    UseBoard(3);
    EXPECT_EQ(Names().GetEthDevName(2, false), "");
}

} // namespace
