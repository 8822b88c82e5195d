#include "PropertyList.h"
#include "TempTree.h"

#include <QDateTime>
#include <QRandomGenerator>
#include <QTimeZone>
#include <gtest/gtest.h>

#include <plist/plist.h>

#include <cstdlib>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

using PropertyList::fromData;

QByteArray wrap(const QByteArray& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + body +
           "</plist>";
}

constexpr qulonglong kBig = 18446744073709551613ull; // above the signed range

QVariantMap sample() {
    QByteArray bytes;
    for (int i = 0; i < 256; ++i)
        bytes.append(static_cast<char>(i));
    return {{u"name"_s, u"Ünïcødé 日本 🎞 <&> \"'"_s},
            {u"empty"_s, QString()},
            {u"line\rends"_s, u" a\rb\r\nc\td \n"_s},
            {u"negative"_s, qlonglong(-42)},
            {u"min"_s, std::numeric_limits<qlonglong>::min()},
            {u"max"_s, std::numeric_limits<qlonglong>::max()},
            {u"unsigned"_s, kBig},
            {u"ratio"_s, 0.1},
            {u"flags"_s, QVariantList{true, false}},
            {u"bytes"_s, bytes},
            {u"when"_s, QDateTime(QDate(2011, 3, 24), QTime(10, 45, 32), QTimeZone::utc())},
            {u"nested"_s,
             QVariantList{QVariantMap{{u"deep"_s, QVariantList{QVariantList{}}}}, QVariantMap{}}}};
}

// Flips random bytes from the given offset on; parsing must return, whatever it returns.
void fuzz(const QByteArray& good, int rounds, int flips, int from = 0) {
    auto* random = QRandomGenerator::global();
    for (int round = 0; round < rounds; ++round) {
        QByteArray bad = good;
        for (int k = 0; k < flips; ++k)
            bad[from + random->bounded(int(bad.size()) - from)] = char(random->bounded(256));
        fromData(bad);
    }
}

TEST(PropertyListTest, roundTripKeepsValuesAndTypesInTheStandardXmlForm) {
    TempTree tree;
    const QString path = tree(u"s.plist"_s);
    ASSERT_TRUE(PropertyList::writeFile(path, sample()));
    QString error;
    const QVariantMap back = PropertyList::readFile(path, &error).toMap();
    EXPECT_TRUE(error.isEmpty()) << qPrintable(error);
    EXPECT_EQ(back, sample());

    const QString xml =
        QString::fromUtf8(PropertyList::toXml(QVariantMap{{u"b"_s, kBig}, {u"a"_s, u"x<&y"_s}}));
    EXPECT_TRUE(xml.startsWith(u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>"_s));
    for (const QString& part : {u"<!DOCTYPE plist PUBLIC"_s, u"<plist version=\"1.0\">"_s,
                                u"x&lt;&amp;y"_s, u"<integer>18446744073709551613</integer>"_s})
        EXPECT_TRUE(xml.contains(part)) << part.toStdString();
    EXPECT_LT(xml.indexOf(u"<key>a</key>"_s), xml.indexOf(u"<key>b</key>"_s));
}

TEST(PropertyListTest, integerTextTable) {
    const std::pair<const char*, QVariant> cases[] = {
        {" 12\n", qlonglong(12)},
        {"9223372036854775807", std::numeric_limits<qlonglong>::max()},
        {"9223372036854775808", qulonglong(9223372036854775808ull)},
        {"18446744073709551615", std::numeric_limits<qulonglong>::max()},
        {"-9223372036854775808", std::numeric_limits<qlonglong>::min()}};
    for (const auto& [text, expected] : cases) {
        const QVariant v = fromData(wrap(QByteArray("<integer>") + text + "</integer>"));
        EXPECT_EQ(v.typeId(), expected.typeId()) << text;
        EXPECT_EQ(v, expected) << text;
    }
    for (const char* refused : {"18446744073709551616", "-9223372036854775809", "12a", "1.5", ""})
        EXPECT_FALSE(fromData(wrap(QByteArray("<integer>") + refused + "</integer>")).isValid());
}

TEST(PropertyListTest, malformedInputGivesAnErrorNotACrash) {
    const QByteArray good = PropertyList::toXml(sample());
    QList<QByteArray> cases = {"", "   \n", "garbage", "<?xml version=\"1.0\"?>", "bplist00"};
    cases << QByteArray("bplist00") + QByteArray(40, '\xff') << good.left(good.size() / 2)
          << good + "<plist/>" << wrap(QByteArray("<array>").repeated(5000));
    for (const char* body : {"", "<dict><key>a</key></dict>", "<dict><string>x</string></dict>",
                             "<array><foo/></array>", "<array>text<string>x</string></array>",
                             "<string>a</string><string>b</string>", "<array></dict>",
                             "<string><string>x</string></string>", "<true>x</true>",
                             "<real>fast</real>", "<date>yesterday</date>", "<data>!!!</data>"})
        cases << wrap(body);
    for (const QByteArray& data : cases) {
        QString error;
        EXPECT_FALSE(fromData(data, &error).isValid()) << data.left(80).constData();
        EXPECT_FALSE(error.isEmpty()) << data.left(80).constData();
    }
    fuzz(good, 2000, 3);
}

// A binary property list written by the library; the node is freed.
QByteArray binary(plist_t node) {
    char* out = nullptr;
    uint32_t length = 0;
    plist_to_bin(node, &out, &length);
    QByteArray data(out, static_cast<qsizetype>(length));
    std::free(out);
    plist_free(node);
    return data;
}

TEST(PropertyListTest, readsBinaryPropertyLists) {
    plist_t list = plist_new_array();
    plist_array_append_item(list, plist_new_string("a"));
    plist_array_append_item(list, plist_new_dict());
    const std::tuple<const char*, plist_t, QVariant> items[] = {
        {"name", plist_new_string("Frame ü"), u"Frame ü"_s},
        {"count", plist_new_uint(42), qlonglong(42)},
        {"big", plist_new_uint(kBig), kBig},
        {"ratio", plist_new_real(0.5), 0.5},
        {"flag", plist_new_bool(1), true},
        {"when", plist_new_date(86400, 0),
         QDateTime(QDate(2001, 1, 2), QTime(0, 0), QTimeZone::utc())},
        {"blob", plist_new_data("\x00\x01\xff", 3), QByteArray("\x00\x01\xff", 3)},
        {"list", list, QVariantList{u"a"_s, QVariantMap{}}}};
    plist_t root = plist_new_dict();
    QVariantMap expected;
    for (const auto& [key, node, value] : items) {
        plist_dict_set_item(root, key, node);
        expected.insert(QString::fromUtf8(key), value);
    }
    TempTree tree;
    QString error;
    const QVariantMap back =
        PropertyList::readFile(tree.file(u"b.plist"_s, binary(root)), &error).toMap();
    EXPECT_TRUE(error.isEmpty()) << qPrintable(error);
    EXPECT_EQ(back, expected);
    EXPECT_EQ(back.value(u"big"_s).typeId(), QMetaType::ULongLong);
    EXPECT_EQ(back.value(u"count"_s).typeId(), QMetaType::LongLong);
}

TEST(PropertyListTest, hostileBinaryInputIsRefused) {
    const auto nested = [](int depth) {
        plist_t root = plist_new_array();
        for (plist_t at = root; depth-- > 0; at = plist_array_get_item(at, 0))
            plist_array_append_item(at, plist_new_array());
        return binary(root);
    };
    EXPECT_TRUE(fromData(nested(100)).isValid());
    QString error;
    EXPECT_FALSE(fromData(nested(600), &error).isValid());
    EXPECT_FALSE(error.isEmpty());
    const QByteArray good = nested(3);
    EXPECT_FALSE(fromData(good.left(good.size() - 5)).isValid());
    // An array holding itself (one object, referring to object 0), its offset table and trailer.
    EXPECT_FALSE(fromData(QByteArray("bplist00\xa1\x00\x08"
                                     "\0\0\0\0\0\0\x01\x01"
                                     "\0\0\0\0\0\0\0\x01"
                                     "\0\0\0\0\0\0\0\0"
                                     "\0\0\0\0\0\0\0\x0a",
                                     43))
                     .isValid());

    plist_t dict = plist_new_dict();
    plist_dict_set_item(dict, "k", plist_new_string("value"));
    plist_dict_set_item(dict, "n", plist_new_uint(7));
    fuzz(binary(dict), 3000, 1, 8);
}

TEST(PropertyListTest, writeFileRefusesWithoutTouchingTheOldFile) {
    TempTree tree;
    const QString path = tree.file(u"keep.plist"_s, "old");
    QString error;
    EXPECT_FALSE(PropertyList::writeFile(path, QVariantMap{{u"x"_s, QVariant()}}, &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_FALSE(PropertyList::writeFile(path, u"bell\a"_s, &error));
    EXPECT_EQ(tree.read(u"keep.plist"_s), QByteArray("old"));
    EXPECT_FALSE(PropertyList::writeFile(tree(u"missing/dir/x.plist"_s), 1, &error));
    EXPECT_TRUE(PropertyList::writeFile(path, QVariantList{1, 2}));
    EXPECT_EQ(PropertyList::readFile(path), QVariant(QVariantList{qlonglong(1), qlonglong(2)}));
}

} // namespace
