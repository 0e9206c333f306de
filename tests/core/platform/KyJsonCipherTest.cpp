// KyJsonCipher: string values of a document sealed to printable text and
// back, by path or whole; wrong keys and altered values fail the whole call
// and leave the document untouched; a sealed document survives a real file.
#include <gtest/gtest.h>

#include <string>

#include "../../support/KyTestProcess.h"
#include "core/io/KyFile.h"
#include "core/platform/KyCrypto.h"
#include "core/platform/KyJsonCipher.h"
#include "core/types/KyJsonDocument.h"

namespace {

const char* kConfig = R"({"vpn":{"token":"t0k3n","name":"home","port":443,"on":true,"peers":["alpha","beta"]},"user":{"password":"hunter2","email":"a@b.c"},"note":null})";

KyJsonDocument config() {
    KyJsonDocument doc;
    EXPECT_TRUE(doc.loadFromJson(kConfig));
    return doc;
}

KyJsonCipher cipher(char fill) { return KyJsonCipher(std::string(32, fill)); }

} // namespace

TEST(KyJsonCipher, SealsEveryStringAndOpensThemBack) {
    KyJsonDocument doc = config();
    KyString error;
    ASSERT_TRUE(cipher('k').encryptStrings(doc, {}, &error)) << error;
    const KyString text = doc.generateJson();
    for (const char* secret : {"t0k3n", "home", "alpha", "hunter2", "a@b.c"}) EXPECT_FALSE(text.contains(secret)) << secret;
    EXPECT_TRUE(KyJsonCipher::isSealed(doc.root()["vpn"]["peers"][1].asString().view()));
    // Member names, numbers, bools and nulls are never touched.
    EXPECT_EQ(doc.root()["vpn"]["port"], KyJsonValue(443));
    EXPECT_EQ(doc.root()["vpn"]["on"], KyJsonValue(true));
    EXPECT_TRUE(doc.root()["note"].isNull());
    EXPECT_TRUE(text.contains("\"password\""));

    // Sealing again changes nothing: sealed values are left as they are.
    const KyString once = doc.generateJson();
    ASSERT_TRUE(cipher('k').encryptStrings(doc));
    EXPECT_EQ(doc.generateJson(), once);

    ASSERT_TRUE(cipher('k').decryptStrings(doc, &error)) << error;
    EXPECT_EQ(doc, config());
}

TEST(KyJsonCipher, SealsOnlyTheGivenPaths) {
    KyJsonDocument doc = config();
    ASSERT_TRUE(cipher('k').encryptStrings(doc, {"vpn/token", "/user/", "missing/path"}));
    EXPECT_TRUE(KyJsonCipher::isSealed(doc.root()["vpn"]["token"].asString().view()));
    EXPECT_TRUE(KyJsonCipher::isSealed(doc.root()["user"]["password"].asString().view()));
    EXPECT_TRUE(KyJsonCipher::isSealed(doc.root()["user"]["email"].asString().view()));
    EXPECT_EQ(doc.root()["vpn"]["name"], KyJsonValue("home"));
    EXPECT_EQ(doc.root()["vpn"]["peers"][0], KyJsonValue("alpha"));
    ASSERT_TRUE(cipher('k').decryptStrings(doc));
    EXPECT_EQ(doc, config());
}

TEST(KyJsonCipher, WrongKeyOrAlteredValueFailsAndLeavesTheDocumentAsItWas) {
    KyJsonDocument doc = config();
    ASSERT_TRUE(cipher('k').encryptStrings(doc));
    const KyString sealed = doc.generateJson();

    KyString error;
    EXPECT_FALSE(cipher('x').decryptStrings(doc, &error));
    EXPECT_EQ(error, "vpn/token: authentication failed");
    EXPECT_EQ(doc.generateJson(), sealed);

    // Alter one character of the last sealed value: earlier values would open,
    // but none of them may be written back.
    KyJsonValue* email = doc.find("user/email");
    ASSERT_NE(email, nullptr);
    std::string altered = email->asString().toStdString();
    altered[altered.size() - 3] = altered[altered.size() - 3] == 'A' ? 'B' : 'A';
    *email = KyString(altered);
    const KyString alteredText = doc.generateJson();
    EXPECT_FALSE(cipher('k').decryptStrings(doc, &error));
    EXPECT_EQ(error, "user/email: authentication failed");
    EXPECT_EQ(doc.generateJson(), alteredText);

    *email = "enc:v1:not base64!";
    EXPECT_FALSE(cipher('k').decryptStrings(doc, &error));
    EXPECT_EQ(error, "user/email: invalid base64 length");
    *email = "enc:v1:AAAA";
    EXPECT_FALSE(cipher('k').decryptStrings(doc, &error));
    EXPECT_EQ(error, "user/email: ciphertext too short");
}

TEST(KyJsonCipher, KeysComeFromPassphrasesAndBadKeysAreRefused) {
    KyJsonCipher a, b, c;
    KyString error;
    ASSERT_TRUE(a.setPassphrase("correct horse", "saltsalt", 1000, &error)) << error;
    ASSERT_TRUE(b.setPassphrase("correct horse", "saltsalt", 1000));
    ASSERT_TRUE(c.setPassphrase("wrong horse", "saltsalt", 1000));
    const KyCrypto::Result sealed = a.sealString("secret");
    ASSERT_TRUE(sealed.ok);
    EXPECT_TRUE(KyJsonCipher::isSealed(sealed.data));
    EXPECT_EQ(b.openString(sealed.data).data, "secret");
    EXPECT_EQ(c.openString(sealed.data).error, "authentication failed");
    EXPECT_EQ(a.openString("plain").error, "not a sealed value");

    KyJsonCipher none;
    KyJsonDocument doc = config();
    EXPECT_FALSE(none.encryptStrings(doc, {}, &error));
    EXPECT_EQ(error, "no key set");
    EXPECT_FALSE(KyJsonCipher(std::string(16, 'k')).hasKey());
    EXPECT_FALSE(none.setKey("short", &error));
    EXPECT_EQ(error, "key must be 32 bytes");
    EXPECT_FALSE(none.setPassphrase("pw", "salt", 1000, &error));
    EXPECT_EQ(error, "salt too short (need at least 8 bytes)");
    EXPECT_EQ(doc, config());
}

TEST(KyJsonCipher, SealedDocumentSurvivesARealFile) {
    const kytest::TempDir dir;
    KyJsonDocument doc = config();
    ASSERT_TRUE(cipher('f').encryptStrings(doc, {"user"}));
    KyString text;
    ASSERT_TRUE(KyFile::writeAll(dir.file("sealed.json"), doc.generateJson(KyJsonDocument::Indented).view()));
    ASSERT_TRUE(KyFile::readAll(dir.file("sealed.json"), text));
    EXPECT_FALSE(text.contains("hunter2"));
    KyJsonDocument back;
    ASSERT_TRUE(back.loadFromJson(text)) << back.errorString();
    ASSERT_TRUE(cipher('f').decryptStrings(back));
    EXPECT_EQ(back, config());
}
