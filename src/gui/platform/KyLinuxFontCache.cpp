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
constexpr const char* kLatinRegistry = "iso8859-1";
} // namespace

// A loaded font. Never freed: KyFont values point at records, and a record of
// a forgotten connection only turns dead.
struct KyLinuxFontCache::Record {
    Display* display = nullptr;
    /// What the record is cached under; the wide face loads from it.
    KyLinuxFontCache::Key key;
    /// The face for plain ASCII text.
    Resolved narrow;
    /// The ISO 10646 face, loaded the first time a text needs more than ASCII.
    mutable Resolved wide;
    mutable std::once_flag wideOnce;
    std::atomic<bool> alive{true};

    Resolved faceFor(std::string_view text) const {
        if (narrow.unicode || !narrow.font) return narrow;
        if (std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; })) return narrow;
        std::call_once(wideOnce, [&] {
            wide = KyLinuxFontCache::load_(display, key, true);
            wide.ascent = narrow.ascent;
            wide.descent = narrow.descent;
        });
        return wide.font ? wide : narrow;
    }
};

namespace {

struct Store {
    std::mutex mutex;
    std::map<Display*, std::map<KyLinuxFontCache::Key, void*>> byDisplay;
    // Per connection: whether the server has any face of a family at all, and
    // whether a charset registry atom names ISO 10646. Each answer is a round
    // trip, asked once: a server without a family would otherwise refuse it
    // again for every size and weight the widgets ask for.
    std::map<Display*, std::map<std::string, bool>> familyPresent;
    std::map<Display*, std::map<Atom, bool>> unicodeRegistry;
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
    const Atom registry = static_cast<Atom>(value);
    Store& s = store();
    {
        std::lock_guard lock(s.mutex);
        auto& known = s.unicodeRegistry[display];
        if (auto it = known.find(registry); it != known.end()) return it->second;
    }
    char* name = XGetAtomName(display, registry);
    const bool unicode = name && KyString(name).toLower() == "iso10646";
    if (name) XFree(name);
    std::lock_guard lock(s.mutex);
    s.unicodeRegistry[display][registry] = unicode;
    return unicode;
}

bool hasFamily(Display* display, const std::string& family) {
    Store& s = store();
    {
        std::lock_guard lock(s.mutex);
        auto& known = s.familyPresent[display];
        if (auto it = known.find(family); it != known.end()) return it->second;
    }
    int count = 0;
    const std::string pattern = "-*-" + family + "-*";
    char** names = XListFonts(display, pattern.c_str(), 1, &count);
    if (names) XFreeFontNames(names);
    std::lock_guard lock(s.mutex);
    s.familyPresent[display][family] = count > 0;
    return count > 0;
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

KyLinuxFontCache::Resolved KyLinuxFontCache::resolve(Display* display, const KyFont& font, std::string_view text) {
    if (!display) return {};
    // The font remembers its record: painting the same label again takes no lock.
    if (const auto* cached = static_cast<const Record*>(font.nativeHandle_.load(std::memory_order_acquire))) {
        if (cached->display == display && cached->alive.load(std::memory_order_acquire))
            return cached->faceFor(text);
    }
    const Key key = keyFor(font);
    Store& s = store();
    {
        std::lock_guard lock(s.mutex);
        auto& fonts = s.byDisplay[display];
        auto it = fonts.find(key);
        if (it != fonts.end()) font.nativeHandle_.store(it->second, std::memory_order_release);
    }
    if (const auto* known = static_cast<const Record*>(font.nativeHandle_.load(std::memory_order_acquire));
        known && known->display == display && known->alive.load(std::memory_order_acquire))
        return known->faceFor(text);
    // Loaded outside the lock: a load is a round trip, and other threads may
    // measure meanwhile. Two threads loading one key keep the first record.
    const Resolved loaded = load_(display, key, false);
    Record* record = nullptr;
    {
        std::lock_guard lock(s.mutex);
        auto& fonts = s.byDisplay[display];
        auto [it, inserted] = fonts.emplace(key, nullptr);
        if (inserted) {
            auto* fresh = new Record;
            fresh->display = display;
            fresh->key = key;
            fresh->narrow = loaded;
            it->second = fresh;
        } else if (loaded.font && loaded.font != static_cast<Record*>(it->second)->narrow.font) {
            XFreeFont(display, loaded.font);
        }
        record = static_cast<Record*>(it->second);
    }
    font.nativeHandle_.store(record, std::memory_order_release);
    return record->faceFor(text);
}

KyLinuxFontCache::Resolved KyLinuxFontCache::load_(Display* display, const Key& key, bool wide) {
    std::vector<std::string> chain;
    auto add = [&chain](std::string name) {
        if (std::find(chain.begin(), chain.end(), name) == chain.end()) chain.push_back(std::move(name));
    };
    std::string spaced = key.family;
    std::replace(spaced.begin(), spaced.end(), '-', ' ');
    // ASCII text takes the face in its Latin-1 encoding: a server sends the
    // metrics of every glyph a face holds, and for the ISO 10646 face of a
    // scalable font that is 65536 of them, tens of milliseconds and most of a
    // megabyte for each size and weight.
    // The same order as the chain below, so both faces are of one family.
    if (!wide) {
        auto addLatin = [&](const std::string& family) {
            if (!hasFamily(display, family)) return;
            add(buildPattern(family, key.pixelSize, key.bold, key.italic, kLatinRegistry));
            if (key.italic) add(buildPattern(family, key.pixelSize, key.bold, key.italic, kLatinRegistry, "o"));
        };
        addLatin(key.family);
        addLatin(spaced);
        add(key.family);
        addLatin("dejavu-sans");
        addLatin("dejavu sans");
        for (const std::string& name : chain)
            if (XFontStruct* font = XLoadQueryFont(display, name.c_str()))
                return {font, isUnicodeFont(display, font), font->ascent, font->descent};
        chain.clear();
    }
    // Each face is tried in its ISO 10646 encoding first; for italics the
    // oblique slant too, which is how DejaVu names its slanted faces.
    auto addFace = [&](const std::string& family) {
        if (!hasFamily(display, family)) return;
        add(buildPattern(family, key.pixelSize, key.bold, key.italic, kUnicodeRegistry));
        if (key.italic) add(buildPattern(family, key.pixelSize, key.bold, key.italic, kUnicodeRegistry, "o"));
        add(buildPattern(family, key.pixelSize, key.bold, key.italic));
    };
    addFace(key.family);
    // Core font names keep the blanks of a family ("dejavu sans mono"); the key
    // joined its words with dashes, which a font name reads as field breaks.
    if (spaced != key.family) addFace(spaced);
    add(key.family);
    addFace("dejavu-sans");
    addFace("dejavu sans");
    add("-*-sans-*-r-*-*-12-*-*-*-*-*-*-*");
    add("fixed");
    for (const std::string& name : chain) {
        if (XFontStruct* font = XLoadQueryFont(display, name.c_str()))
            return {font, isUnicodeFont(display, font), font->ascent, font->descent};
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
        // A later connection may reach another server under the same address.
        s.familyPresent.erase(display);
        s.unicodeRegistry.erase(display);
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
        const Record* r = static_cast<Record*>(record);
        if (r->narrow.font) XFreeFont(display, r->narrow.font);
        if (r->wide.font && r->wide.font != r->narrow.font) XFreeFont(display, r->wide.font);
    }
}
