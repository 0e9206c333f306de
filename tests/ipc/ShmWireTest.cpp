// The lowest IPC layer as another process sees it: the hash, the object
// names, the codec's bytes and limits, the type-id texts, and how channel
// objects are created, adopted and refused. Golden values were computed by
// hand from the hash rule (FNV-1a, prime 0x100000001B3, private start), not
// by the code under test.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>

#include "ipc/Codec.h"
#include "ipc/IpcNames.h"
#include "ipc/ShmMapping.h"
#include "ipc/TypeId.h"
#include "../support/KyTestIpc.h"

using namespace ky::ipc;
using namespace ky::ipc::detail;

namespace {

// Raw view of a shared object as a peer maps it.
struct RawObject : kytest::ShmView {
    explicit RawObject(const KyString& name) : ShmView(name.toStdString()) {}
};

void createZeroObject(const KyString& name, size_t size) {
    int fd = shm_open(name.toStdString().c_str(), O_CREAT | O_RDWR, 0666);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, static_cast<off_t>(size)), 0);
    close(fd);
}

}  // namespace

TEST(IpcWire, HashAndNamesMatchHandComputedValues) {
    EXPECT_EQ(frameworkHash(KyString("")), 0x14650FB0739D0383ULL);
    EXPECT_EQ(hex64(frameworkHash(KyString("velnet|velnet/VelmoVpnAgent|authState"))), KyString("6a915a85afcc8ef7"));
    EXPECT_EQ(make_shm_name("velnet", "velnet/VelmoVpnAgent", "authState"), KyString("/ky_sig_6a915a85afcc8ef7"));
    EXPECT_EQ(hex64(0x1), KyString("0000000000000001"));
    // Only the joined text counts: "|" in other places names the same object.
    EXPECT_EQ(make_shm_name("a|b", "c", "d"), make_shm_name("a", "b|c", "d"));
    EXPECT_EQ(make_shm_name(KyString(std::string(500, 'x')), "o", "s").size(), 24u);
}

TEST(IpcWire, RegistrySuffixesAreSafeBoundedAndDistinct) {
    struct Row {
        const char* domain;
        const char* expected;
    } rows[] = {
        {"velnet", "velnet"},
        {"///", "root"},
        {"", "root"},
        {"__a b/c__", "a_b_c"},
        {"my.app-1_x", "my.app-1_x"},
        {"abcdefghijklmnopqrstuvwxyzABCDEFG", "abcdefghijklmnopqrstuvwxyzABCDEF_782ed9ac9639df14"},
    };
    for (const Row& r : rows) EXPECT_EQ(sanitizeRegistrySuffix_(r.domain), KyString(r.expected)) << r.domain;
}

TEST(IpcWire, CopyTruncAlwaysTerminates) {
    char field[64];
    std::memset(field, 'z', sizeof(field));
    copyTrunc(field, sizeof(field), KyString(std::string(64, 'a')));
    EXPECT_EQ(std::string(field), std::string(63, 'a'));
    copyTrunc(field, 0, "ignored");
    copyTrunc(nullptr, 10, "ignored");
    copyTrunc(field, sizeof(field), "short");
    EXPECT_STREQ(field, "short");
}

TEST(IpcWire, TypeIdsHashTheCompilerStyleText) {
    EXPECT_EQ(typeIdText("bool, KyString"),
              KyString("uint64_t ky::ipc::detail::type_id() [with Args = {bool, KyString}; uint64_t = long unsigned int]"));
    EXPECT_EQ(hex64(type_id<bool, KyString>()), KyString("6a6502fbe37a1600"));
    EXPECT_EQ(hex64(type_id<uint64_t>()), KyString("ab71ed9601726a35"));
    EXPECT_EQ(hex64(type_id<uint64_t, uint32_t, KyString>()), KyString("2a743fd84909642a"));
    EXPECT_EQ(type_name<KyString>(), KyString("KyString ky::ipc::detail::type_name() [with Args = {KyString}]"));
    EXPECT_NE((type_id<int, KyString>()), (type_id<KyString, int>()));
    EXPECT_NE(type_id<unsigned int>(), type_id<uint64_t>());
}

TEST(IpcWire, CodecWritesLittleEndianWithoutTagsAndRespectsTheLimit) {
    uint8_t buf[kPayloadCapacity];
    Encoder e{buf, sizeof(buf), 0};
    ASSERT_TRUE(encodeArgs(e, true, 0x01020304, uint64_t{5}, KyString("hi")));
    const uint8_t expected[] = {1, 4, 3, 2, 1, 5, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 'h', 'i'};
    ASSERT_EQ(e.pos, sizeof(expected));
    EXPECT_EQ(std::memcmp(buf, expected, sizeof(expected)), 0);

    // After a u64, a 4084-byte string still fits (8 + 4 + 4084 = 4096); 4085 does not.
    Encoder fits{buf, sizeof(buf), 0};
    EXPECT_TRUE(encodeArgs(fits, uint64_t{1}, KyString(std::string(4084, 'x'))));
    Encoder over{buf, sizeof(buf), 0};
    EXPECT_FALSE(encodeArgs(over, uint64_t{1}, KyString(std::string(4085, 'x'))));

    // A count that runs past the end fails; a zero count is the empty string; extra bytes are ignored.
    const uint8_t truncated[] = {9, 0, 0, 0, 'a'};
    Decoder d{truncated, sizeof(truncated), 0};
    KyString s;
    EXPECT_FALSE(Codec<KyString>::read(d, s));
    const uint8_t empty[] = {0, 0, 0, 0, 7, 7};
    Decoder d2{empty, sizeof(empty), 0};
    std::tuple<KyString> t;
    EXPECT_TRUE(readTuple(d2, t));
    EXPECT_TRUE(std::get<0>(t).isEmpty());
    const uint8_t shortInts[] = {1, 0, 0, 0, 2, 0, 0, 0};
    Decoder d3{shortInts, sizeof(shortInts), 0};
    std::tuple<int, int, int> three;
    EXPECT_FALSE(readTuple(d3, three));
}

TEST(IpcWire, ChannelObjectsAreCreatedAdoptedAndCheckedByTheFixedRules) {
    kytest::IpcDomain domain("wire");
    const KyString name = make_shm_name(domain.name(), "obj", "sig");
    domain.trackName(name.toStdString());

    auto mapping = ShmMapping<4096>::openOrCreate(name, type_id<KyString>());
    {
        RawObject raw(name);
        ASSERT_TRUE(raw.ok());
        EXPECT_EQ(raw.size(), 4280u);
        EXPECT_EQ(std::memcmp(raw.base(), "1GIS", 4), 0);
        EXPECT_EQ(raw.at<uint32_t>(4), 2u);
        EXPECT_EQ(raw.at<uint64_t>(8), type_id<KyString>());
        EXPECT_EQ(raw.at<uint64_t>(104), 1u);
        EXPECT_EQ(raw.at<uint32_t>(112), 0u);
    }
    try {
        ShmMapping<4096>::openOrCreate(name, type_id<int>());
        FAIL() << "a second signature must be refused";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "SHM type mismatch (subscriber/publisher types differ)");
    }
    {
        RawObject raw(name);
        uint32_t oldVersion = 1;
        std::memcpy(raw.base() + 4, &oldVersion, 4);
    }
    try {
        ShmMapping<4096>::openOrCreate(name, type_id<KyString>());
        FAIL() << "an older layout must be refused";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "SHM layout mismatch (magic/version)");
    }

    // An object whose creator died before initialising is adopted.
    const KyString zeroName = make_shm_name(domain.name(), "obj", "zero");
    domain.trackName(zeroName.toStdString());
    createZeroObject(zeroName, sizeof(ShmQueueLayout<4096, 10>));
    auto queue = ShmMappingT<ShmQueueLayout<4096, 10>>::openOrCreate(zeroName, type_id<KyString>());
    RawObject raw(zeroName);
    EXPECT_EQ(std::memcmp(raw.base(), "1EUQ", 4), 0);
    EXPECT_EQ(raw.at<uint64_t>(104), 0u);
    EXPECT_EQ(raw.at<uint64_t>(112), 0u);
}
