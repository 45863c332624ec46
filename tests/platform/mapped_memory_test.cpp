#include "platform/mapped_memory.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include "platform/open_file.h"
#include "support/libc_fault.h"
#include "support/temporary_folder.h"

namespace {

std::string_view Text(const MappedMemory& memory) {
    const auto bytes = memory.Bytes();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// A file of two pages and a bit, whose bytes tell where they stand.
class MappedMemoryTest : public testing::Test {
  protected:
    MappedMemoryTest() {
        for (size_t i = 0; i < m_Page * 2 + 100; ++i) m_Content += static_cast<char>('a' + i % 23);
        m_Fd = OpenFd(m_Folder.File("f", m_Content).c_str(), O_RDWR);
    }

    const size_t m_Page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const TemporaryFolder m_Folder;
    std::string m_Content;
    UniqueFd m_Fd;
};

}  // namespace

TEST(MappedMemory, IsEmptyByDefault) {
    MappedMemory memory;
    EXPECT_FALSE(memory);
    EXPECT_TRUE(memory.Bytes().empty());
    memory.Reset();
}

TEST_F(MappedMemoryTest, MapsFromAnyOffset) {
    for (const size_t offset : {size_t{0}, size_t{1}, m_Page - 1, m_Page, m_Page + 5}) {
        const MappedMemory memory = MappedMemory::Map(m_Fd.Get(), offset, m_Page);
        ASSERT_TRUE(memory);
        EXPECT_EQ(Text(memory), std::string_view{m_Content}.substr(offset, m_Page)) << offset;
    }
}

TEST_F(MappedMemoryTest, StandsWithoutTheDescriptor) {
    const MappedMemory memory = MappedMemory::Map(m_Fd.Get(), 3, 10);
    m_Fd.Reset();
    EXPECT_EQ(Text(memory), std::string_view{m_Content}.substr(3, 10));
}

TEST_F(MappedMemoryTest, WritesWhereThatWasAskedFor) {
    {
        const MappedMemory memory =
            MappedMemory::Map(m_Fd.Get(), m_Page + 1, 3, PROT_READ | PROT_WRITE);
        memcpy(memory.Bytes().data(), "123", 3);
    }
    EXPECT_EQ(m_Folder.Read("f"), m_Content.replace(m_Page + 1, 3, "123"));
}

TEST_F(MappedMemoryTest, IsEmptyWithTheNumberOfTheFailure) {
    EXPECT_FALSE(MappedMemory::Map(-1, 0, 10));
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(MappedMemory::Map(m_Fd.Get(), 0, 0));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(MappedMemory::Map(m_Fd.Get(), 1, SIZE_MAX));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(MappedMemory::Map(m_Fd.Get(), 0, SIZE_MAX));
    EXPECT_EQ(errno, ENOMEM);
    FaultOf<&::mmap> fault;
    fault.Fail(EPERM);
    EXPECT_FALSE(MappedMemory::Map(m_Fd.Get(), 0, 10));
    EXPECT_EQ(errno, EPERM);
}

TEST_F(MappedMemoryTest, MovesAndCannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<MappedMemory>);
    EXPECT_FALSE(std::is_copy_assignable_v<MappedMemory>);
    MappedMemory first = MappedMemory::Map(m_Fd.Get(), 1, 10);
    MappedMemory second{std::move(first)};
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): left empty by contract
    EXPECT_TRUE(first.Bytes().empty());
    MappedMemory third = MappedMemory::Map(m_Fd.Get(), 0, 1);
    third = std::move(second);
    EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move)
    MappedMemory& same = third;
    third = std::move(same);
    EXPECT_EQ(Text(third), std::string_view{m_Content}.substr(1, 10));
    third.Reset();
    EXPECT_FALSE(third);
}

TEST_F(MappedMemoryTest, LeavesErrnoAloneWhenItGoes) {
    MappedMemory memory = MappedMemory::Map(m_Fd.Get(), 1, 10);
    FaultOf<&::munmap> fault;
    fault.Answer([](void* address, size_t size) {
        (void)LibcFault::Real<&::munmap>(address, size);
        errno = EINVAL;
        return -1;
    });
    errno = ENOTTY;
    memory.Reset();
    EXPECT_EQ(errno, ENOTTY);
}
