#include "tests/unit/device/support.h"

#include "device/state/guest_memory.h"

#include <numeric>

namespace kalix::test {
namespace {

using device::guest_memory;
using device::outcome;

std::vector<std::byte> pool(4097 * 4096);

// Page n of these tests lies at the n-th place of the pool from its end: nothing that follows in numbers follows
// in memory.
std::byte* backward(uint64_t page)
{
    return page == 0 || page > 4097 ? nullptr : pool.data() + (4097 - page) * 4096;
}

std::byte* forward(uint64_t page)
{
    return page == 0 || page > 4097 ? nullptr : pool.data() + (page - 1) * 4096;
}

TEST(Regions, PagesLieWhereTheyWereNamed)
{
    for (const auto& address : {forward, backward})
        for (const uint32_t pages : {1u, 3968u, 3969u, 4097u}) {
            SCOPED_TRACE(pages);
            guest_memory memory{{}, address};
            ASSERT_EQ(memory.define(1, pages), outcome{});
            for (uint32_t first = 0; first < pages; first += 3968) { // in as many remaps as the driver's side makes
                std::vector<uint64_t> list(std::min(pages - first, 3968u));
                std::iota(list.begin(), list.end(), first + 1);
                ASSERT_EQ(memory.remap(1, first, list), outcome{});
            }
            const uint64_t bytes = uint64_t{pages} * 4096;
            ASSERT_EQ(memory.check(1, 0, bytes), outcome{});
            ASSERT_EQ(memory.check(1, bytes, 0), outcome{});
            ASSERT_EQ(memory.check(1, 1, bytes), outcome{KALIX_REFUSED_OUTSIDE});
            ASSERT_EQ(memory.check(1, UINT64_MAX, 1), outcome{KALIX_REFUSED_OUTSIDE});
            // Across the border of the last page and the one before, or from its start.
            const std::byte sent[2] = {std::byte(pages), std::byte(pages >> 8 | 0x80)};
            const uint64_t at = bytes == 4096 ? 0 : bytes - 4097;
            memory.copy_out(1, at, sent);
            EXPECT_EQ(address(at / 4096 + 1)[at % 4096], sent[0]);
            EXPECT_EQ(address((at + 1) / 4096 + 1)[(at + 1) % 4096], sent[1]);
            std::byte back[2];
            memory.copy_in(1, at, back);
            EXPECT_EQ(back[0], sent[0]);
            EXPECT_EQ(back[1], sent[1]);
        }
}

// Remaps of random spans beside a list with one entry a page.
TEST(Regions, RemapsLikeAListOfPages)
{
    dice random;
    guest_memory memory{{}, forward};
    constexpr uint32_t pages = 40;
    std::vector<uint64_t> model(pages, 0);
    ASSERT_EQ(memory.define(1, pages), outcome{});
    for (int step = 0; step < 3000; ++step) {
        const uint32_t first = random.below(pages + 2);
        std::vector<uint64_t> list(random.below(8));
        const uint64_t start = 1 + random.below(100);
        for (size_t i = 0; i < list.size(); ++i)
            list[i] = random.below(4) != 0 ? start + i : random.below(60) + 1;
        const bool fits = first + list.size() <= pages;
        ASSERT_EQ(memory.remap(1, first, list), fits ? outcome{} : outcome{KALIX_REFUSED_OUTSIDE});
        if (fits)
            std::ranges::copy(list, model.begin() + first);
        for (uint32_t page = 0; page < pages; ++page) {
            const outcome there = memory.check(1, page * 4096, 4096);
            ASSERT_EQ(there, model[page] ? outcome{} : outcome{KALIX_REFUSED_OUTSIDE}) << "step " << step;
            if (!model[page])
                continue;
            const auto mark = static_cast<std::byte>(random());
            forward(model[page])[17] = mark;
            std::byte seen;
            memory.copy_in(1, page * 4096 + 17, {&seen, 1});
            ASSERT_EQ(seen, mark) << "step " << step << ", page " << page;
        }
    }
}

TEST(Regions, RefusesWhatItCannotKeep)
{
    guest_memory memory{{}, forward};
    EXPECT_EQ(memory.define(SVGA_GMR_IDS, 1), outcome{KALIX_REFUSED_BAD_VALUE});
    EXPECT_EQ(memory.define(SVGA_GMR_IDS - 1, 0), outcome{}); // removing what is not there
    EXPECT_EQ(memory.remap(5, 0, {}), outcome{KALIX_REFUSED_NO_REGION});
    ASSERT_EQ(memory.define(5, 2), outcome{});
    EXPECT_EQ(memory.remap(5, 0, std::vector<uint64_t>{1, 5000}), outcome{KALIX_REFUSED_BAD_VALUE});
    EXPECT_EQ(memory.check(5, 0, 1), outcome{KALIX_REFUSED_OUTSIDE}); // and nothing of it was kept
    EXPECT_EQ(memory.check(6, 0, 0), outcome{KALIX_REFUSED_NO_REGION});
    // All regions together are bounded; a redefinition gives its pages back first.
    EXPECT_EQ(memory.define(6, device::regions_pages_max - 1), outcome{KALIX_REFUSED_NO_MEMORY});
    EXPECT_EQ(memory.define(5, device::regions_pages_max), outcome{});
    EXPECT_EQ(memory.define(6, 1), outcome{KALIX_REFUSED_NO_MEMORY});
    EXPECT_EQ(memory.define(5, 0), outcome{});
    EXPECT_EQ(memory.define(6, device::regions_pages_max), outcome{});
    EXPECT_EQ(memory.count(), 1u);
}

} // namespace
} // namespace kalix::test
