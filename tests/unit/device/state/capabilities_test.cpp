// What clients read of the device: the capability record, walked as clients walk it.

#include "tests/unit/device/support.h"

#include "device/state/capabilities.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <set>

namespace kalix::test {
namespace {

class CapabilitiesTest : public device_test {};

TEST_F(CapabilitiesTest, OneRecordSaysWhatIsThere)
{
    const std::span<uint32_t> area = bus->fifo().subspan(SVGA_FIFO_3D_CAPS, 256);
    std::array<uint32_t, device::capability_area_words> written;
    device::write_capabilities(written);
    ASSERT_TRUE(std::ranges::equal(area, written));
    const uint32_t length = area[0];
    ASSERT_LT(length, 256u);
    EXPECT_EQ(area[length], 0u) << "no end behind the record";
    EXPECT_EQ(area[1], 0x100u);
    std::set<uint32_t> indices;
    for (uint32_t i = 2; i < length; i += 2)
        EXPECT_TRUE(indices.insert(area[i]).second) << "index " << area[i] << " twice";
    EXPECT_EQ(bus->fifo()[SVGA_FIFO_3D_HWVERSION], 0x00020001u);
}

// The document says what the records say. With KALIX_WRITE_DOCS set it is made to.
TEST(CapabilityTable, StandsInTheDocument)
{
    const std::string path = KALIX_SOURCE_DIR "/docs/device.md";
    std::ifstream in{path};
    std::string text{std::istreambuf_iterator<char>{in}, {}};
    const std::string begin = "<!-- capabilities -->\n";
    const size_t from = text.find(begin) + begin.size();
    const size_t to = text.find("<!-- end -->", from);
    ASSERT_NE(to, std::string::npos);
    const std::string wanted = device::capability_table();
    if (std::getenv("KALIX_WRITE_DOCS"))
        std::ofstream{path} << text.replace(from, to - from, wanted);
    else
        EXPECT_EQ(text.substr(from, to - from), wanted);
}

} // namespace
} // namespace kalix::test
