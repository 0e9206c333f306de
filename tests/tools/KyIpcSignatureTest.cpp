// Tests of the inspector's run-time signatures: letters to type texts and
// ids (checked against a hash computed here from the hashing rule and against
// the typed channels' own ids), command-line words to values, and values to
// wire bytes and back.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ipc/Codec.h"
#include "ipc/TypeId.h"
#include "tools/kyipc/KyIpcSignature.h"

namespace {

// FNV-1a with the 64-bit prime and the framework's start value, written out
// here so the golden ids do not come from the code under test.
uint64_t goldenHash(const std::string& text) {
    uint64_t h = 0x14650FB0739D0383ULL;
    for (unsigned char c : text) {
        h ^= c;
        h *= 0x100000001B3ULL;
    }
    return h;
}

uint64_t goldenTypeId(const std::string& list) {
    return goldenHash("uint64_t ky::ipc::detail::type_id() [with Args = {" + list +
                      "}; uint64_t = long unsigned int]");
}

std::vector<uint8_t> encoded(const KyIpcSignature& signature, const std::vector<KyIpcValue>& values) {
    uint8_t buffer[ky::ipc::kPayloadCapacity];
    ky::ipc::Encoder e{buffer, sizeof(buffer), 0};
    EXPECT_TRUE(signature.encode(values, e));
    return std::vector<uint8_t>(buffer, buffer + e.pos);
}

KyIpcSignature sig(const char* letters) { return *KyIpcSignature::parse(letters); }

}  // namespace

TEST(KyIpcSignature, LettersGiveTheArgumentListAndTheHashedTypeId) {
    struct Row { const char* name; const char* letters; const char* list; };
    const Row rows[] = {
        {"empty", "", ""}, {"bool", "b", "bool"}, {"int", "i", "int"}, {"unsigned", "u", "unsigned int"},
        {"u64", "t", "long unsigned int"}, {"string", "s", "KyString"}, {"registry event", "t", "long unsigned int"},
        {"config", "ts", "long unsigned int, KyString"}, {"three ints", "iii", "int, int, int"},
        {"agent pair", "bs", "bool, KyString"},
        {"rpc request without arguments", "tus", "long unsigned int, unsigned int, KyString"},
        {"rpc reply", "tbsb", "long unsigned int, bool, KyString, bool"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::optional<KyIpcSignature> s = KyIpcSignature::parse(row.letters);
        ASSERT_TRUE(s.has_value());
        EXPECT_EQ(s->argumentList(), KyString(row.list));
        EXPECT_EQ(s->typeId(), goldenTypeId(row.list));
        EXPECT_EQ(s->typeName(), KyString("KyString ky::ipc::detail::type_name() [with Args = {") + row.list + "}]");
    }
}

TEST(KyIpcSignature, RunTimeIdsEqualTheTypedChannelsIds) {
    using ky::ipc::detail::type_id;
    EXPECT_EQ(sig("iii").typeId(), (type_id<int, int, int>()));
    EXPECT_EQ(sig("sb").typeId(), (type_id<KyString, bool>()));
    EXPECT_EQ(sig("tuss").typeId(), (type_id<unsigned long, unsigned int, KyString, KyString>()));
    EXPECT_EQ(sig("tbsb").typeId(), (type_id<unsigned long, bool, KyString, bool>()));
    // Order and width matter: a 32-bit and a 64-bit unsigned differ.
    EXPECT_NE(sig("bs").typeId(), sig("sb").typeId());
    EXPECT_NE(sig("u").typeId(), sig("t").typeId());
}

TEST(KyIpcSignature, BadLettersAreRefusedWithTheirPosition) {
    struct Row { const char* letters; const char* expected; };
    const Row rows[] = {
        {"x", "letter 'x' at position 1"}, {"bsq", "letter 'q' at position 3"}, {"b s", "letter ' ' at position 2"},
        {"B", "letter 'B' at position 1"}, {"i\x01", "letter '\\x01' at position 2"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.letters);
        KyString error;
        EXPECT_FALSE(KyIpcSignature::parse(row.letters, &error).has_value());
        EXPECT_TRUE(error.contains(row.expected)) << error;
    }
}

TEST(KyIpcSignature, StoredTypeNamesReadBackIntoLetters) {
    struct Row {
        const char* name;
        KyString typeName;
        const char* letters;  // nullptr: unreadable
    };
    const KyString prefix("KyString ky::ipc::detail::type_name() [with Args = {");
    const Row rows[] = {
        {"one", prefix + "int, KyString}]", "is"},
        {"none", prefix + "}]", ""},
        {"request", prefix + "long unsigned int, unsigned int, KyString, int}]", "tusi"},
        {"cut by the registry", (prefix + "int, int").left(40), nullptr},
        {"unknown type", prefix + "double}]", nullptr},
        {"not a type name", KyString("hello"), nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::optional<KyIpcSignature> s = KyIpcSignature::fromTypeName(row.typeName);
        if (row.letters) {
            ASSERT_TRUE(s.has_value());
            EXPECT_EQ(s->letters(), KyString(row.letters));
        } else {
            EXPECT_FALSE(s.has_value());
        }
    }
}

TEST(KyIpcSignature, WordsBecomeValuesOrAClearError) {
    struct Row {
        const char* name;
        const char* letters;
        std::vector<const char*> words;
        const char* text;   // formatted values when accepted
        const char* error;  // part of the error when refused
    };
    const Row rows[] = {
        {"bools", "bbbb", {"true", "NO", "on", "0"}, "bbbb true false true false", nullptr},
        {"int range", "ii", {"-2147483648", "+2147483647"}, "ii -2147483648 2147483647", nullptr},
        {"unsigned and u64", "ut", {"4294967295", "18446744073709551615"}, "ut 4294967295 18446744073709551615",
         nullptr},
        {"string kept as it is", "s", {" a \"b\"\n"}, "s \" a \\\"b\\\"\\n\"", nullptr},
        {"empty string", "s", {""}, "s \"\"", nullptr},
        {"word for int", "i", {"abc"}, nullptr, "argument 1 (i): \"abc\" is not an int"},
        {"maybe for bool", "sb", {"x", "maybe"}, nullptr, "argument 2 (b): \"maybe\" is not a bool"},
        {"int overflow", "i", {"2147483648"}, nullptr, "is not an int"},
        {"negative unsigned", "u", {"-1"}, nullptr, "is not an unsigned int"},
        {"u64 overflow", "t", {"18446744073709551616"}, nullptr, "is not a 64-bit unsigned int"},
        {"blank around number", "i", {" 5"}, nullptr, "is not an int"},
        {"hex is not decimal", "u", {"0x10"}, nullptr, "is not an unsigned int"},
        {"too few", "is", {"1"}, nullptr, "signature \"is\" takes 2 argument(s), 1 given"},
        {"too many", "", {"1"}, nullptr, "takes 0 argument(s), 1 given"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        KyList<KyString> words;
        for (const char* w : row.words) words.append(KyString(w));
        std::vector<KyIpcValue> values;
        KyString error;
        const bool ok = sig(row.letters).parseArguments(words, values, &error);
        if (row.text) {
            ASSERT_TRUE(ok) << error;
            EXPECT_EQ(KyIpcSignature::formatText(sig(row.letters), values), KyString(row.text));
        } else {
            EXPECT_FALSE(ok);
            EXPECT_TRUE(values.empty());
            EXPECT_TRUE(error.contains(row.error)) << error;
        }
    }
}

TEST(KyIpcSignature, EncodingMatchesTheTypedCodecAndDecodesBack) {
    const KyIpcSignature s = sig("tubis");
    KyList<KyString> words{"1311768467463790320", "7", "yes", "-3", "héllo"};
    std::vector<KyIpcValue> values;
    ASSERT_TRUE(s.parseArguments(words, values, nullptr));
    const std::vector<uint8_t> bytes = encoded(s, values);

    uint8_t typed[ky::ipc::kPayloadCapacity];
    ky::ipc::Encoder e{typed, sizeof(typed), 0};
    ASSERT_TRUE(ky::ipc::detail::encodeArgs(e, 1311768467463790320UL, 7U, true, -3, KyString("héllo")));
    EXPECT_EQ(bytes, std::vector<uint8_t>(typed, typed + e.pos));
    EXPECT_EQ(bytes.size(), 8u + 4u + 1u + 4u + 4u + 6u);

    ky::ipc::Decoder d{bytes.data(), bytes.size(), 0};
    std::vector<KyIpcValue> back;
    ASSERT_TRUE(s.decode(d, back));
    EXPECT_EQ(KyIpcSignature::formatText(s, back), KyString("tubis 1311768467463790320 7 true -3 \"héllo\""));
}

TEST(KyIpcSignature, ShortPayloadsAndMismatchedValuesAreRefused) {
    // Three ints need twelve bytes; eleven fail, extra bytes are ignored.
    std::vector<uint8_t> bytes(11, 0);
    ky::ipc::Decoder shortDecoder{bytes.data(), bytes.size(), 0};
    std::vector<KyIpcValue> out;
    EXPECT_FALSE(sig("iii").decode(shortDecoder, out));
    EXPECT_TRUE(out.empty());
    bytes.resize(13, 0);
    ky::ipc::Decoder longDecoder{bytes.data(), bytes.size(), 0};
    EXPECT_TRUE(sig("iii").decode(longDecoder, out));
    EXPECT_EQ(out.size(), 3u);

    // A string count running past the end fails.
    const uint8_t badString[] = {10, 0, 0, 0, 'a'};
    ky::ipc::Decoder stringDecoder{badString, sizeof(badString), 0};
    EXPECT_FALSE(sig("s").decode(stringDecoder, out));

    uint8_t buffer[ky::ipc::kPayloadCapacity];
    ky::ipc::Encoder e{buffer, sizeof(buffer), 0};
    EXPECT_FALSE(sig("i").encode({KyIpcValue::fromBool(true)}, e));
    EXPECT_FALSE(sig("ii").encode({KyIpcValue::fromInt(1)}, e));
}

TEST(KyIpcSignature, PayloadLimitIsInclusive) {
    // After a u64, a string of 4084 bytes fills the 4096-byte payload exactly.
    uint8_t buffer[ky::ipc::kPayloadCapacity];
    ky::ipc::Encoder fits{buffer, sizeof(buffer), 0};
    EXPECT_TRUE(sig("ts").encode({KyIpcValue::fromUInt64(1), KyIpcValue::fromString(KyString(4084, 'x'))}, fits));
    EXPECT_EQ(fits.pos, 4096u);
    ky::ipc::Encoder over{buffer, sizeof(buffer), 0};
    EXPECT_FALSE(sig("ts").encode({KyIpcValue::fromUInt64(1), KyIpcValue::fromString(KyString(4085, 'x'))}, over));
}

TEST(KyIpcSignature, JsonKeepsEveryDigitOfLargeUnsignedValues) {
    EXPECT_EQ(KyIpcValue::fromUInt64(42).toJson(), KyJsonValue(42LL));
    EXPECT_EQ(KyIpcValue::fromUInt64(18446744073709551615ULL).toJson(), KyJsonValue("18446744073709551615"));
    EXPECT_EQ(KyIpcValue::fromInt(-5).toJson(), KyJsonValue(-5));
    EXPECT_EQ(KyIpcValue::fromBool(true).toJson(), KyJsonValue(true));
    EXPECT_EQ(KyIpcValue::fromString("a").toJson(), KyJsonValue("a"));
}
