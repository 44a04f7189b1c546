#include "utils/UniqueFd.h"

#include <utility>

#include <fcntl.h>

#include <gtest/gtest.h>

namespace {

int OpenNull() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}
bool IsOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

TEST(UniqueFd, OwnsNothingAtFirst) {
    const UniqueFd none;
    EXPECT_FALSE(none);
    EXPECT_LT(none.get(), 0);
    EXPECT_FALSE(UniqueFd(-1));
}

TEST(UniqueFd, DescriptorZeroIsOne) {
    UniqueFd zero(0);
    EXPECT_TRUE(zero);
    EXPECT_EQ(zero.release(), 0);
}

TEST(UniqueFd, ClosesWhenItGoes) {
    const int fd = OpenNull();
    {
        const UniqueFd owner(fd);
        EXPECT_TRUE(owner);
        EXPECT_EQ(owner.get(), fd);
        EXPECT_TRUE(IsOpen(fd));
    }
    EXPECT_FALSE(IsOpen(fd));
}

TEST(UniqueFd, ReleaseLeavesTheDescriptorOpen) {
    const int fd = OpenNull();
    int released = -1;
    {
        UniqueFd owner(fd);
        released = owner.release();
        EXPECT_FALSE(owner);
    }
    EXPECT_EQ(released, fd);
    EXPECT_TRUE(IsOpen(fd));
    close(fd);
}

TEST(UniqueFd, ResetClosesTheOldOne) {
    const int first = OpenNull();
    const int second = OpenNull();
    UniqueFd owner(first);
    owner.reset(second);
    EXPECT_FALSE(IsOpen(first));
    EXPECT_EQ(owner.get(), second);
    owner.reset();
    EXPECT_FALSE(IsOpen(second));
    EXPECT_FALSE(owner);
}

TEST(UniqueFd, MovingHandsOverAndClosesWhatTheTargetHad) {
    const int first = OpenNull();
    const int second = OpenNull();
    UniqueFd from(first);
    UniqueFd moved(std::move(from));
    EXPECT_FALSE(from); // NOLINT(bugprone-use-after-move): empty behind a move
    EXPECT_EQ(moved.get(), first);

    UniqueFd target(second);
    target = std::move(moved);
    EXPECT_FALSE(IsOpen(second));
    EXPECT_TRUE(IsOpen(first));
    EXPECT_EQ(target.get(), first);

    UniqueFd& self = target;
    target = std::move(self);
    EXPECT_EQ(target.get(), first);
    EXPECT_TRUE(IsOpen(first));
}

} // namespace
