// Painting on a private Xvfb, judged by the pixels read back from the window:
// the kept and replaced backbuffer, clips, rounded shapes, image alpha, the
// fonts the chain resolves to, and text that measures where it draws.
#include <X11/Xatom.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "../../support/KyTestX11.h"
#include "gui/platform/KyLinuxFontCache.h"
#include "gui/platform/KyScopedPlatformPainter.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/platform/KyX11Painter.h"
#include "gui/platform/KyX11PlatformImage.h"

namespace {

const KyColor kWhite(255, 255, 255);
const KyColor kBlack(0, 0, 0);
const KyColor kRed(255, 0, 0);
const KyColor kBlue(0, 0, 255);
const KyColor kBackground = KyColor::fromRgb(0xF9F9F9u);

struct X11Painting : kytest::GuiFixture {
    void SetUp() override {
        GuiFixture::SetUp();
        KyWindowCallbacks callbacks;
        callbacks.resized = [this](KyPlatformSize s) { size = s; };
        window = showWindow(callbacks, size.width, size.height);
        id = window->nativeHandle();
        display = static_cast<Display*>(window->nativeDisplay());
    }
    // One frame over the whole window; presented when draw returns.
    void frame(const std::function<void(KyPainter&)>& draw) {
        KyPlatformPaintEvent event;
        event.dirtyRect[2] = size.width;
        event.dirtyRect[3] = size.height;
        event.surfaceSize = size;
        event.nativeWindow = event.nativeDrawable = id;
        event.nativeDisplay = display;
        {
            KyScopedPlatformPainter painter(platform(), event);
            draw(*painter);
        }
        XSync(display, False); // the frame is on screen before the user looks
    }
    KyColor at(int x, int y) { return user->pixel(id, x, y); }

    KyPlatformSize size{320, 200};
    std::unique_ptr<KyPlatformWindow> window;
    Window id = 0;
    Display* display = nullptr;
};

TEST_F(X11Painting, BackbufferIsKeptBetweenFramesAndReplacedOnResize) {
    frame([](KyPainter& p) { p.clear(kRed); });
    EXPECT_EQ(at(100, 100), kRed);
    frame([](KyPainter& p) { p.fillRect({0, 0, 10, 10}, kBlue, kBlack, 0); });
    EXPECT_EQ(at(5, 5), kBlue);
    EXPECT_EQ(at(100, 100), kRed) << "a partial frame composes on the last one";

    window->resize(400, 300);
    ASSERT_TRUE(runUntil([&] { return size == KyPlatformSize{400, 300}; }));
    frame([](KyPainter& p) { p.fillRect({0, 0, 10, 10}, kBlue, kBlack, 0); });
    EXPECT_EQ(at(5, 5), kBlue);
    EXPECT_EQ(at(100, 100), kBackground) << "a new size starts from a fresh backbuffer";
    EXPECT_EQ(at(390, 290), kBackground);
}

TEST_F(X11Painting, NestedClipsIntersectAndPopRestores) {
    frame([](KyPainter& p) {
        p.clear(kWhite);
        p.pushClipRect({10, 10, 50, 50});
        p.pushClipRect({30, 30, 50, 50});
        p.clear(kRed);
        p.popClipRect();
        p.fillRect({0, 0, 100, 100}, kBlue, kBlack, 0);
        p.popClipRect();
        p.popClipRect(); // more pops than pushes are harmless
        p.pushClipRect({200, 10, 10, 10});
        p.pushClipRect({230, 10, 10, 10});
        p.clear(kRed); // disjoint clips: a zero-size clip, nothing draws
        p.popClipRect();
        p.popClipRect();
    });
    EXPECT_EQ(at(5, 5), kWhite);
    EXPECT_EQ(at(15, 15), kBlue) << "the outer clip after the pop";
    EXPECT_EQ(at(35, 35), kBlue);
    EXPECT_EQ(at(70, 70), kWhite);
    EXPECT_EQ(at(205, 15), kWhite);
    EXPECT_EQ(at(235, 15), kWhite);
}

TEST_F(X11Painting, ARoundedRectTallerThanWideIsAStadium) {
    frame([](KyPainter& p) {
        p.clear(kWhite);
        p.fillRoundedRect({20, 20, 20, 80}, 30, kBlue, kBlack, 0);
        p.fillRoundedRect({100, 20, 40, 40}, 0, 20, 0, 20, kRed, kBlack, 0);
    });
    EXPECT_EQ(at(20, 20), kWhite) << "corner cut";
    EXPECT_EQ(at(39, 99), kWhite);
    EXPECT_EQ(at(30, 20), kBlue) << "top of the cap";
    EXPECT_EQ(at(30, 99), kBlue) << "bottom of the cap";
    EXPECT_EQ(at(20, 60), kBlue);
    EXPECT_EQ(at(39, 60), kBlue);
    EXPECT_EQ(at(18, 60), kWhite) << "no overflow past the sides";
    EXPECT_EQ(at(100, 20), kRed) << "a square corner";
    EXPECT_EQ(at(139, 20), kWhite) << "a round corner";
    EXPECT_EQ(at(139, 59), kRed);
    EXPECT_EQ(at(100, 59), kWhite);
}

TEST_F(X11Painting, DrawImageBlendsByAlphaAndScales) {
    KyX11PlatformImage bgra({3, 1}, KyPixelFormat::Bgra32);
    const std::uint8_t alphas[3] = {0, 128, 255};
    for (int i = 0; i < 3; ++i) {
        std::uint8_t* p = bgra.pixels() + i * 4;
        p[0] = 0, p[1] = 0, p[2] = 255, p[3] = alphas[i];
    }
    KyX11PlatformImage rgb({1, 1}, KyPixelFormat::Rgb24);
    rgb.clear(0xFF00FF00u);
    const KyRect part{2, 0, 1, 1};
    frame([&](KyPainter& p) {
        p.clear(kWhite);
        p.drawImage({10, 10, 3, 1}, bgra, nullptr);
        p.drawImage({20, 20, 4, 4}, rgb, nullptr);
        p.drawImage({30, 30, 2, 2}, bgra, &part);
        p.drawImage({-1, 50, 3, 1}, bgra, nullptr); // partly off the surface
    });
    const struct {
        const char* name;
        int x, y;
        KyColor expected;
    } rows[] = {
        {"alpha 0 leaves the background", 10, 10, kWhite},
        {"alpha 128 mixes half", 11, 10, KyColor(255, 127, 127)},
        {"alpha 255 covers", 12, 10, kRed},
        {"opaque formats cover, scaled up", 23, 23, KyColor(0, 255, 0)},
        {"a source rectangle picks its part", 31, 31, kRed},
        {"off-surface columns are skipped", 1, 50, kRed},
    };
    for (const auto& row : rows) EXPECT_EQ(at(row.x, row.y), row.expected) << row.name;
}

TEST_F(X11Painting, BgraPixelsScaleByNearestSampleAndIgnoreAlpha) {
    // Two source pixels, blue then green, the second fully transparent.
    const std::uint8_t pixels[8] = {255, 0, 0, 255, 0, 255, 0, 0};
    frame([&](KyPainter& p) {
        p.clear(kWhite);
        p.drawBgra32({10, 10, 4, 2}, pixels, 2, 1, 8);
    });
    EXPECT_EQ(at(10, 10), kBlue);
    EXPECT_EQ(at(11, 11), kBlue);
    EXPECT_EQ(at(12, 10), KyColor(0, 255, 0)) << "alpha is ignored";
    EXPECT_EQ(at(13, 11), KyColor(0, 255, 0));
    EXPECT_EQ(at(14, 10), kWhite);
}

TEST_F(X11Painting, DashesTrianglesAndBadInput) {
    const std::uint8_t pixel[4] = {0, 0, 255, 255};
    const KyPoint triangle[3] = {{100, 100}, {140, 100}, {100, 140}};
    KyX11PlatformImage empty({0, 0}, KyPixelFormat::Bgra32);
    frame([&](KyPainter& p) {
        p.clear(kWhite);
        p.drawDashedRect({10, 10, 40, 20}, kBlack, 1, 0, 0); // the top edge dashed 4 on, 4 off
        p.drawDashedRect({10, 40, 40, 20}, kBlack, 1, 1, 1);
        p.fillPolygon(triangle, 3, kBlue, kBlack, 0);
        // Nothing of these draws, and none of them fails.
        p.fillPolygon(triangle, 2, kRed, kBlack, 0);
        p.drawBgra32({200, 10, 4, 4}, pixel, 1, 1, 3); // stride below width * 4
        p.drawBgra32({200, 10, 0, 4}, pixel, 1, 1, 4);
        p.drawBgra32({200, 10, 4, 4}, pixel, 0, 1, 4);
        p.drawImage({200, 10, 4, 4}, empty, nullptr);
        p.fillRoundedRect({200, 10, 0, 20}, 1, 2, 3, 4, kRed, kBlack, 0);
        p.drawText({200, 10, 40, 20}, "", {}, kRed, KyFont(L"Segoe UI", 9));
    });
    EXPECT_EQ(at(11, 10), kBlack);
    EXPECT_EQ(at(15, 10), kWhite) << "dash 0 becomes 4";
    EXPECT_EQ(at(18, 10), kBlack);
    EXPECT_EQ(at(10, 40), kBlack);
    EXPECT_EQ(at(11, 40), kWhite) << "dash 1 stays 1";
    EXPECT_EQ(at(12, 40), kBlack);
    EXPECT_EQ(at(105, 105), kBlue);
    EXPECT_EQ(at(135, 135), kWhite);
    const auto untouched = user->pixels(id, {195, 5, 50, 30});
    EXPECT_EQ(std::count(untouched.begin(), untouched.end(), 0xFFFFFFu), static_cast<long>(untouched.size()));

    KyX11Painter idle; // never begun: every operation is a no-op
    idle.fillRect({0, 0, 10, 10}, kRed, kBlack, 1);
    idle.drawText({0, 0, 50, 20}, "x", {}, kRed, KyFont(L"Segoe UI", 9));
    idle.popClipRect();
    idle.finalize();
    EXPECT_EQ(at(5, 5), kWhite);
}

std::string fontName(Display* d, XFontStruct* font) {
    unsigned long atom = 0;
    if (!font || !XGetFontProperty(font, XA_FONT, &atom)) return {};
    char* name = XGetAtomName(d, static_cast<Atom>(atom));
    std::string result = name ? name : "";
    if (name) XFree(name);
    return KyString(result).toLower().toStdString();
}

TEST_F(X11Painting, FontsResolveThroughTheChain) {
    const struct {
        const char* name;
        KyFont font;
        std::vector<std::string> parts;
    } rows[] = {
        {"the widgets' default is DejaVu Sans at 12 px, Latin-1 for ASCII", KyFont(L"Segoe UI", 9), {"-dejavu sans-medium-r-", "-12-", "iso8859-1"}},
        {"segoe_ui is the same family", KyFont(L"segoe_ui", 9), {"-dejavu sans-"}},
        {"weight 599 is medium", KyFont(L"Segoe UI", 9, 599), {"-medium-"}},
        {"weight 600 is bold", KyFont(L"Segoe UI", 9, 600), {"-bold-"}},
        {"italic finds the oblique face", KyFont(L"Segoe UI", 9, 400, true), {"-dejavu sans-medium-o-"}},
        {"an unknown family falls back to DejaVu", KyFont(L"No Such Family", 12), {"-dejavu sans-", "-16-"}},
        {"a whole font name loads as given", KyFont(L"fixed", 0), {"fixed"}},
    };
    for (const auto& row : rows) {
        const std::string name = fontName(display, KyLinuxFontCache::acquire(display, row.font));
        for (const std::string& part : row.parts) EXPECT_NE(name.find(part), std::string::npos) << row.name << ": " << name;
    }
    KyFont pixels(L"Segoe UI", 30);
    pixels.pixelSize = 20;
    EXPECT_NE(fontName(display, KyLinuxFontCache::acquire(display, pixels)).find("-20-"), std::string::npos)
        << "a pixel size wins over the point size";
    EXPECT_EQ(KyLinuxFontCache::acquire(display, KyFont(L"Segoe UI", 9)), KyLinuxFontCache::acquire(display, KyFont(L"segoe_ui", 9)))
        << "one key, loaded once";
    EXPECT_NE(fontName(display, KyLinuxFontCache::resolve(display, KyFont(L"Segoe UI", 9), "Caf\u00e9").font).find("iso10646-1"),
              std::string::npos)
        << "text beyond ASCII takes the ISO 10646 face";
}

TEST_F(X11Painting, TextDrawsWhereItMeasures) {
    const struct {
        const char* name;
        const char* text;
    } rows[] = {
        {"ASCII", "Velmo VPN 42"},
        {"Latin-1", "Caf\u00e9 Z\u00fcrich \u00f1"},
        {"an ASCII half beside a Latin-1 half", "Velmo VPN Caf\u00e9 \u00fc\u00fc"},
        {"Cyrillic and Greek", "\u041f\u0440\u0438\u0432\u0435\u0442 \u03b1\u03b2\u03b3"},
        {"missing glyphs and beyond the plane", "\u65e5\u672c \U0001F600 x"},
    };
    const KyFont font(L"Segoe UI", 9);
    const KyWidgetPlatformHandle handle{display, id};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const KyString text(row.text);
        // A split on a code-point boundary in the middle.
        const std::size_t split = text.alignToCodePoint(text.size() / 2);
        const int prefixWidth = KyWidgetPlatformAdapter::textWidthUntil(handle, text, font, split, 0);
        const int width = KyWidgetPlatformAdapter::textWidthUntil(handle, text, font, text.size(), 0);
        ASSERT_GT(prefixWidth, 0);
        ASSERT_GT(width, prefixWidth);
        frame([&](KyPainter& p) {
            p.clear(kWhite);
            p.drawText({10, 10, 300, 30}, text, {}, kBlack, font);
            p.drawText({10, 50, 300, 30}, text.left(split), {}, kBlack, font);
            p.drawText({10 + prefixWidth, 50, 300, 30}, text.mid(split), {}, kBlack, font);
        });
        // Drawn whole or in two pieces placed by the measure: the same pixels.
        const auto whole = user->pixels(id, {0, 10, 320, 30});
        const auto pieces = user->pixels(id, {0, 50, 320, 30});
        EXPECT_EQ(whole, pieces);
        EXPECT_NE(std::count(whole.begin(), whole.end(), 0u), 0) << "ink was drawn";
        // The ink ends where the measure says the text ends.
        int rightmost = -1;
        for (int x = 0; x < 320; ++x)
            for (int y = 0; y < 30; ++y)
                if (whole[static_cast<std::size_t>(y) * 320 + x] != 0xFFFFFFu) rightmost = std::max(rightmost, x);
        EXPECT_LE(rightmost, 10 + width);
        EXPECT_GE(rightmost, 10 + width - 4);
        // Every boundary's x maps back to the character that starts there.
        for (std::size_t i = 0; i < text.size(); i = text.nextCodePoint(i)) {
            const int at = KyWidgetPlatformAdapter::textWidthUntil(handle, text, font, i, 0);
            const int next = KyWidgetPlatformAdapter::textWidthUntil(handle, text, font, text.nextCodePoint(i), 0);
            if (next > at && at > 0) {
                EXPECT_EQ(KyWidgetPlatformAdapter::characterIndexAtPosition(handle, text, font, at, 0), i);
            }
        }
        EXPECT_EQ(KyWidgetPlatformAdapter::characterIndexAtPosition(handle, text, font, width + 5, 0), text.size());
    }
}

TEST_F(X11Painting, EveryCodePointIsOneGlyphAndMissingOnesShowAStandIn) {
    const KyFont font(L"Segoe UI", 9);
    const KyWidgetPlatformHandle handle{display, id};
    auto width = [&](const char* text) {
        return KyWidgetPlatformAdapter::textWidthUntil(handle, text, font, std::string(text).size(), 0);
    };
    const int standIn = width("\uFFFD");
    ASSERT_GT(standIn, 0);
    EXPECT_EQ(width("\U0001F600"), standIn) << "beyond the plane: one stand-in";
    EXPECT_EQ(width("\u65e5"), standIn) << "a glyph DejaVu lacks: one stand-in";
    EXPECT_EQ(width("\xC0\xAF"), 2 * standIn) << "an overlong form: one stand-in per byte";
    EXPECT_LT(width("i"), width("W")) << "letters the font has are drawn as themselves";
    EXPECT_NE(width("\u0416"), standIn);
    EXPECT_EQ(width("\u0416\u0416"), 2 * width("\u0416"));
}

TEST_F(X11Painting, TextInAnEmptyRectangleStillDraws) {
    frame([](KyPainter& p) {
        p.clear(kWhite);
        p.drawText({10, 10, 0, 0}, "HHHH", {}, kBlack, KyFont(L"Segoe UI", 9));
    });
    const auto ink = user->pixels(id, {10, 10, 40, 20});
    EXPECT_NE(std::count(ink.begin(), ink.end(), 0u), 0);
}

} // namespace
