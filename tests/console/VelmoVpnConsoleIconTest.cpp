// The application icon as the desktop shows it: at every size a user meets,
// the middle column reads tile, amber shield, the point of the dark V, amber
// again and tile; the tile's corners are see-through and its body opaque.
#include <gtest/gtest.h>

#include <string>

#include "console/VelmoVpnConsoleIcon.h"

namespace {

// T see-through, D the dark tile or the V, A the amber shield, x an edge pixel.
char classify(std::uint32_t argb) {
    const int a = argb >> 24, r = (argb >> 16) & 0xFF, g = (argb >> 8) & 0xFF, b = argb & 0xFF;
    if (a < 128) return 'T';
    if (r < 80 && g < 80 && b < 90) return 'D';
    if (r > 170 && r - b > 90) return 'A';
    return 'x';
}

TEST(VelmoVpnConsoleIcon, EverySizeShowsTheShieldWithItsV) {
    for (int size : {16, 22, 24, 32, 48, 64, 128, 256}) {
        const KyPlatformIcon icon = velmoVpnConsoleApplicationIcon(size);
        ASSERT_EQ(icon.width, size);
        ASSERT_FALSE(icon.isNull());
        std::string column;
        for (int y = 0; y < size; ++y) {
            const char c = classify(icon.argb[static_cast<std::size_t>(y) * size + size / 2]);
            if (c != 'x' && (column.empty() || column.back() != c)) column += c;
        }
        if (!column.empty() && column.front() == 'T') column.erase(0, 1);
        if (!column.empty() && column.back() == 'T') column.pop_back();
        EXPECT_EQ(column, "DADAD") << size << " px";
        EXPECT_LT(icon.argb[0] >> 24, 64u) << size << " px: the tile's corner is rounded";
        EXPECT_EQ(icon.argb[static_cast<std::size_t>(size / 2) * size + size / 8] >> 24, 255u) << size << " px: opaque";
    }
}

TEST(VelmoVpnConsoleIcon, SizesOutsideWhatAThemeAsksForGiveNoIcon) {
    for (int size : {0, -16, 4096}) EXPECT_TRUE(velmoVpnConsoleApplicationIcon(size).isNull()) << size;
}

}  // namespace
