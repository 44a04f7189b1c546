#include "utils/TempDir.h"
#include "vcihost/ConsoleFile.h"
#include "vcihost/ControlDir.h"

#include <fstream>
#include <system_error>

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

TEST(ControlDir, WritesTheValueAsOneLine) {
    const TempDir dir;
    dir.Write("drop", "an older, longer text");
    const ControlDir control(dir.path());
    control.Set("drop", "1");
    EXPECT_EQ(dir.Read("drop"), "1\n");
    EXPECT_EQ(control.Read("drop"), "1\n");
}

TEST(ControlDir, AFileThatIsNotThereIsAnError) {
    const TempDir dir;
    const ControlDir control(dir.path());
    try {
        control.Set("drop", "1");
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.what(), "cannot open " + (dir / "drop") + ": No such file or directory");
    }
    EXPECT_THROW(control.Read("drop"), std::system_error);
    EXPECT_FALSE(std::filesystem::exists(dir / "drop"));
}

TEST(ControlDir, ALineMatchesWholeWithWildcards) {
    const std::string text = "27  out   1\n28\tout 0  \nlast";
    for (const char* line : {"27 out 1", "28 out 0", "28 * 0", "28 out ?", "2[78] out 0", "last",
                             "  27   out 1", "*"}) {
        EXPECT_TRUE(ControlDir::HasLine(text, line)) << line;
    }
    for (const char* line : {"27 out", "out 1", "27 out 0", "28 out 01", "las"}) {
        EXPECT_FALSE(ControlDir::HasLine(text, line)) << line;
    }
    EXPECT_FALSE(ControlDir::HasLine("", "*"));
}

TEST(ConsoleFile, StartsBehindWhatIsThere) {
    const TempDir dir;
    dir.Write("console", "wait usb...\ngot usb!\n");
    ConsoleFile console(dir / "console");
    EXPECT_FALSE(console.Find("got usb!"));
    std::ofstream(dir / "console", std::ios::app) << "ready to exit!\n";
    EXPECT_TRUE(console.Find("ready to exit!"));
}

TEST(ConsoleFile, FindsEachTextOnce) {
    const TempDir dir;
    ConsoleFile console(dir / "console"); // not there yet
    EXPECT_FALSE(console.Find("a"));
    EXPECT_EQ(console.Rest(), "");
    dir.Write("console", "one a two a three");
    EXPECT_TRUE(console.Find("a"));
    EXPECT_TRUE(console.Find("two a"));
    EXPECT_FALSE(console.Find(" a"));
    EXPECT_EQ(console.Rest(), " three");
}

TEST(ConsoleFile, IsSearchedFromItsBeginningWhenRewoundOrBegunAnew) {
    const TempDir dir;
    dir.Write("console", "got usb!\nmore\n");
    ConsoleFile console(dir / "console");
    console.Rewind();
    EXPECT_TRUE(console.Find("got usb!"));
    EXPECT_TRUE(console.Find("more"));
    dir.Write("console", "got usb!\n");
    EXPECT_TRUE(console.Find("got usb!"));
}

} // namespace
