// KyLinuxFontCache: the resolution chain, the per-connection map and the
// ISO 10646 test of a loaded font.
#include "gui/platform/KyLinuxFontCache.h"

#include <X11/Xatom.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <tuple>
#include <vector>

#include "core/io/KyDebug.h"
#include "core/types/KyString.h"

namespace {
constexpr const char* kCategory = "ky.gui.platform.kylinuxfontcache";
constexpr const char* kUnicodeRegistry = "iso10646-1";
} // namespace

// A loaded font. Never freed: KyFont values point at records, and a record of
// a forgotten connection only turns dead.
struct KyLinuxFontCache::Record {
    Display* display = nullptr;
    Resolved resolved;
    std::atomic<bool> alive{true};
};

namespace {

struct Store {
    std::mutex mutex;
    std::map<Display*, std::map<KyLinuxFontCache::Key, void*>> byDisplay;
    std::vector<void*> dead;
};

// Never destroyed: painters of other threads may measure during exit.
Store& store() {
    static auto* s = new Store;
    return *s;
}

bool isUnicodeFont(Display* display, XFontStruct* font) {
    const Atom registryAtom = XInternAtom(display, "CHARSET_REGISTRY", True);
    unsigned long value = 0;
    if (registryAtom == None || !XGetFontProperty(font, registryAtom, &value) || value == 0) return false;
    char* name = XGetAtomName(display, static_cast<Atom>(value));
    if (!name) return false;
    const bool unicode = KyString(name).toLower() == "iso10646";
    XFree(name);
    return unicode;
}

} // namespace

bool KyLinuxFontCache::Key::operator<(const Key& o) const {
    return std::tie(family, pixelSize, bold, italic, underline) <
           std::tie(o.family, o.pixelSize, o.bold, o.italic, o.underline);
}

KyLinuxFontCache::Key KyLinuxFontCache::keyFor(const KyFont& font) {
    Key key;
    std::string family = KyString::fromWString(font.family).toLower().toStdString();
    if (family.empty()) family = "sans";
    std::replace(family.begin(), family.end(), ' ', '-');
    std::replace(family.begin(), family.end(), '_', '-');
    if (family == "segoe-ui" || family == "segoeui") family = "dejavu-sans";
    key.family = std::move(family);
    if (font.pixelSize > 0) key.pixelSize = font.pixelSize;
    else if (font.pointSize > 0) key.pixelSize = static_cast<std::int32_t>(font.pointSize * 96.0 / 72.0 + 0.5);
    else key.pixelSize = 12;
    key.bold = font.weight >= 600;
    key.italic = font.italic;
    key.underline = font.underline;
    return key;
}

std::string KyLinuxFontCache::buildPattern(const std::string& family, int pixelSize, bool bold, bool italic,
                                           const char* registry, const char* slant) {
    std::string p = "-*-";
    p += family.empty() ? "sans" : family;
    p += bold ? "-bold-" : "-medium-";
    p += slant ? slant : (italic ? "i" : "r");
    p += "-*-*-" + std::to_string(pixelSize) + "-*-*-*-*-*-";
    p += registry ? registry : "*-*";
    return p;
}

XFontStruct* KyLinuxFontCache::acquire(Display* display, const KyFont& font) { return resolve(display, font).font; }

KyLinuxFontCache::Resolved KyLinuxFontCache::resolve(Display* display, const KyFont& font) {
    if (!display) return {};
    // The font remembers its record: painting the same label again takes no lock.
    if (const auto* cached = static_cast<const Record*>(font.nativeHandle_.load(std::memory_order_acquire))) {
        if (cached->display == display && cached->alive.load(std::memory_order_acquire)) return cached->resolved;
    }
    const Key key = keyFor(font);
    Store& s = store();
    {
        std::lock_guard lock(s.mutex);
        auto& fonts = s.byDisplay[display];
        auto it = fonts.find(key);
        if (it != fonts.end()) {
            font.nativeHandle_.store(it->second, std::memory_order_release);
            return static_cast<Record*>(it->second)->resolved;
        }
    }
    // Loaded outside the lock: a load is a round trip, and other threads may
    // measure meanwhile. Two threads loading one key keep the first record.
    const Resolved loaded = load_(display, key);
    std::lock_guard lock(s.mutex);
    auto& fonts = s.byDisplay[display];
    auto [it, inserted] = fonts.emplace(key, nullptr);
    if (inserted) {
        auto* record = new Record;
        record->display = display;
        record->resolved = loaded;
        it->second = record;
    } else if (loaded.font && loaded.font != static_cast<Record*>(it->second)->resolved.font) {
        XFreeFont(display, loaded.font);
    }
    font.nativeHandle_.store(it->second, std::memory_order_release);
    return static_cast<Record*>(it->second)->resolved;
}

KyLinuxFontCache::Resolved KyLinuxFontCache::load_(Display* display, const Key& key) {
    std::vector<std::string> chain;
    auto add = [&chain](std::string name) {
        if (std::find(chain.begin(), chain.end(), name) == chain.end()) chain.push_back(std::move(name));
    };
    // Each face is tried in its ISO 10646 encoding first; for italics the
    // oblique slant too, which is how DejaVu names its slanted faces.
    auto addFace = [&](const std::string& family) {
        add(buildPattern(family, key.pixelSize, key.bold, key.italic, kUnicodeRegistry));
        if (key.italic) add(buildPattern(family, key.pixelSize, key.bold, key.italic, kUnicodeRegistry, "o"));
        add(buildPattern(family, key.pixelSize, key.bold, key.italic));
    };
    addFace(key.family);
    // Core font names keep the blanks of a family ("dejavu sans mono"); the key
    // joined its words with dashes, which a font name reads as field breaks.
    std::string spaced = key.family;
    std::replace(spaced.begin(), spaced.end(), '-', ' ');
    if (spaced != key.family) addFace(spaced);
    add(key.family);
    addFace("dejavu-sans");
    addFace("dejavu sans");
    add("-*-sans-*-r-*-*-12-*-*-*-*-*-*-*");
    add("fixed");
    for (const std::string& name : chain) {
        if (XFontStruct* font = XLoadQueryFont(display, name.c_str())) return {font, isUnicodeFont(display, font)};
    }
    kyLogWarning(kCategory) << "No core font loads for" << key.family << "(not even \"fixed\"); text falls back to estimates";
    return {};
}

void KyLinuxFontCache::forgetDisplay(Display* display) {
    if (!display) return;
    Store& s = store();
    std::map<Key, void*> fonts;
    {
        std::lock_guard lock(s.mutex);
        auto it = s.byDisplay.find(display);
        if (it == s.byDisplay.end()) return;
        fonts.swap(it->second);
        s.byDisplay.erase(it);
        for (auto& [key, record] : fonts) {
            static_cast<Record*>(record)->alive.store(false, std::memory_order_release);
            s.dead.push_back(record);
        }
    }
    for (auto& [key, record] : fonts) {
        XFontStruct* font = static_cast<Record*>(record)->resolved.font;
        if (font) XFreeFont(display, font);
    }
}
