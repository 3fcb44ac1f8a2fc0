#include "api/api_fixture.h"

#include <set>
#include <string>

namespace quarnex::test {
namespace {

TEST(api_general, version_is_that_of_the_header)
{
    const std::string expected = std::to_string(QRX_VERSION_MAJOR) + "." +
                                 std::to_string(QRX_VERSION_MINOR) + "." +
                                 std::to_string(QRX_VERSION_PATCH);
    EXPECT_EQ(qrx_version(), expected);
}

TEST(api_general, each_status_has_its_own_text)
{
    std::set<std::string> texts;
    for (int status = QRX_OK; status <= QRX_TRAILING_BYTES; ++status) {
        const std::string text = qrx_status_text(static_cast<qrx_status>(status));
        EXPECT_TRUE(texts.insert(text).second) << text;
        EXPECT_NE(text, "unknown status");
        EXPECT_NE(text.back(), '.');
    }
    constexpr auto unknown = static_cast<qrx_status>(QRX_TRAILING_BYTES + 1);
    EXPECT_STREQ(qrx_status_text(unknown), "unknown status");
}

TEST(api_general, checksums_continue_and_combine)
{
    const bytes data = sample_data(0);
    const u32 whole = qrx_crc32(0, data.data(), data.size());
    const u32 first = qrx_crc32(0, data.data(), 100);
    const u32 second = qrx_crc32(0, data.data() + 100, data.size() - 100);
    EXPECT_EQ(qrx_crc32(first, data.data() + 100, data.size() - 100), whole);
    EXPECT_EQ(qrx_crc32_combine(first, second, data.size() - 100), whole);
    EXPECT_EQ(qrx_crc32(first, nullptr, 0), first);
    EXPECT_EQ(qrx_crc32(first, data.data(), 0), first);
}

} // namespace
} // namespace quarnex::test
