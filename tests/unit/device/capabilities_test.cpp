// What clients read of the device: the capability record, walked as clients walk it.

#include "tests/unit/device/support.h"

#include "hardware/gpu/vmware_svga/lib/device/capabilities.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/limits.h"

#include <fstream>

namespace kalix::test {
namespace {

class CapabilitiesTest : public device_test {};

TEST_F(CapabilitiesTest, OneRecordSaysWhatIsThere)
{
    const std::span<uint32_t> area = bus->fifo().subspan(SVGA_FIFO_3D_CAPS, 256);
    const uint32_t length = area[0];
    ASSERT_GE(length, 2u);
    ASSERT_LT(length, 256u);
    EXPECT_EQ(area[length], 0u) << "no end behind the record";
    EXPECT_EQ(area[1], 0x100u);
    std::map<uint32_t, uint32_t> values;
    for (uint32_t i = 2; i < length; i += 2)
        EXPECT_TRUE(values.emplace(area[i], area[i + 1]).second) << "index " << area[i] << " twice";
    EXPECT_EQ(values[0], 1u);
    EXPECT_EQ(values[2], device::limits::texture_stages);
    EXPECT_EQ(values[31], device::limits::texture_operations);
    EXPECT_EQ(values[5] | values[7], 0u); // no shaders
    EXPECT_EQ(values[33] & 0x47, 0x43u);  // A8R8G8B8: sampled, target, blending, no depth
    EXPECT_EQ(values[44] & 0x47, 0x04u);  // Z_D24S8: depth alone
    EXPECT_EQ(values[46], 0x39u);         // DXT1: sampled and filtered, flat, as cube or volume; no target
    EXPECT_EQ(values[1], 8u);
    EXPECT_EQ(values.count(50), 1u);
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
