// velmo-icon: writes the console's application icon as PNG files.
//
//   velmo-icon --theme DIR [SIZE...]   DIR/<n>x<n>/apps/velmo-vpn-console.png for each size
//                                      (default 16 22 24 32 48 64 128 256), as an icon theme lays them out
//   velmo-icon --png FILE SIZE         one size into FILE
//   velmo-icon --sheet FILE            every size on the console's dark page and on white, and
//                                      16, 24 and 32 px enlarged 8 times, for judging the drawing
//
// The build runs it to make the hicolor icons that `cmake --install` puts in place.
#include <cerrno>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "VelmoPngWriter.h"
#include "console/VelmoVpnConsoleIcon.h"

namespace {

constexpr const char* kIconName = "velmo-vpn-console";

bool makeDirs(const std::string& path) {
    std::string partial;
    for (std::size_t i = 0; i <= path.size(); ++i) {
        if (i == path.size() || path[i] == '/') {
            if (!partial.empty() && mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) return false;
        }
        if (i < path.size()) partial += path[i];
    }
    return true;
}

bool writeIcon(const std::string& file, int size) {
    const KyPlatformIcon icon = velmoVpnConsoleApplicationIcon(size);
    std::string error;
    if (!velmo::png::writeArgb(file, icon.width, icon.height, icon.argb, &error)) {
        std::fprintf(stderr, "velmo-icon: %s\n", error.c_str());
        return false;
    }
    return true;
}

// Straight-alpha "over" of one icon pixel onto an opaque background pixel.
std::uint32_t over(std::uint32_t fg, std::uint32_t bg) {
    const std::uint32_t a = fg >> 24;
    std::uint32_t out = 0xFF000000u;
    for (int shift = 0; shift <= 16; shift += 8) {
        const std::uint32_t f = (fg >> shift) & 0xFF, b = (bg >> shift) & 0xFF;
        out |= ((f * a + b * (255 - a) + 127) / 255) << shift;
    }
    return out;
}

bool writeSheet(const std::string& file) {
    const std::vector<int> sizes = {16, 24, 32, 48, 64, 128, 256};
    const int pad = 16, zoom = 8;
    int width = pad;
    for (int s : sizes) width += s + pad;
    const int zoomed = (16 + 24 + 32) * zoom + 4 * pad;
    width = std::max(width, zoomed);
    const int height = 2 * (256 + 2 * pad) + 32 * zoom + 2 * pad;
    std::vector<std::uint32_t> px(static_cast<std::size_t>(width) * height, 0xFF0A161Eu);  // the page, rgb(10,22,30)
    for (int y = 256 + 2 * pad; y < 2 * (256 + 2 * pad); ++y)
        for (int x = 0; x < width; ++x) px[static_cast<std::size_t>(y) * width + x] = 0xFFF3F6F7u;
    const auto blit = [&](int s, int ox, int oy, int scale) {
        const KyPlatformIcon icon = velmoVpnConsoleApplicationIcon(s);
        for (int y = 0; y < s * scale; ++y)
            for (int x = 0; x < s * scale; ++x) {
                std::uint32_t& dst = px[static_cast<std::size_t>(oy + y) * width + ox + x];
                dst = over(icon.argb[static_cast<std::size_t>(y / scale) * s + x / scale], dst);
            }
    };
    for (int band = 0; band < 2; ++band) {
        int x = pad;
        for (int s : sizes) {
            blit(s, x, band * (256 + 2 * pad) + pad + (256 - s), 1);
            x += s + pad;
        }
    }
    int x = pad;
    for (int s : {16, 24, 32}) {
        blit(s, x, 2 * (256 + 2 * pad) + pad, zoom);
        x += s * zoom + pad;
    }
    std::string error;
    if (!velmo::png::writeArgb(file, width, height, px, &error)) {
        std::fprintf(stderr, "velmo-icon: %s\n", error.c_str());
        return false;
    }
    return true;
}

int usage() {
    std::fputs("usage: velmo-icon --theme DIR [SIZE...] | --png FILE SIZE | --sheet FILE\n", stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return usage();
    const std::string mode = argv[1];
    if (mode == "--png" && argc == 4) return writeIcon(argv[2], std::atoi(argv[3])) ? 0 : 1;
    if (mode == "--sheet" && argc == 3) return writeSheet(argv[2]) ? 0 : 1;
    if (mode != "--theme") return usage();
    std::vector<int> sizes;
    for (int i = 3; i < argc; ++i) {
        const int s = std::atoi(argv[i]);
        if (s <= 0 || s > 1024) return usage();
        sizes.push_back(s);
    }
    if (sizes.empty()) sizes = {16, 22, 24, 32, 48, 64, 128, 256};
    for (int s : sizes) {
        const std::string dir = std::string(argv[2]) + "/" + std::to_string(s) + "x" + std::to_string(s) + "/apps";
        if (!makeDirs(dir)) {
            std::fprintf(stderr, "velmo-icon: cannot create %s\n", dir.c_str());
            return 1;
        }
        if (!writeIcon(dir + "/" + kIconName + ".png", s)) return 1;
    }
    return 0;
}
