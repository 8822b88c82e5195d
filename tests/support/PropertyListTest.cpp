#include "PropertyList.h"
#include "TempTree.h"

#include <QDateTime>
#include <QFile>
#include <QRandomGenerator>
#include <QTimeZone>
#include <gtest/gtest.h>

#include <plist/plist.h>

#include <cstdlib>
#include <limits>

namespace {

QVariant parse(const QByteArray& data, QString* error = nullptr) {
    return PropertyList::fromData(data, error);
}

QByteArray wrap(const char* body) {
    return QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">") +
           body + "</plist>";
}

QVariantMap sample() {
    QByteArray bytes;
    for (int i = 0; i < 256; ++i)
        bytes.append(static_cast<char>(i));
    return {
        {QStringLiteral("name"), QStringLiteral("Ünïcødé 日本 🎞 <&> \"'")},
        {QStringLiteral("empty"), QString()},
        {QStringLiteral("line\rends"), QStringLiteral(" a\rb\r\nc\td \n")},
        {QStringLiteral("negative"), qlonglong(-42)},
        {QStringLiteral("min"), std::numeric_limits<qlonglong>::min()},
        {QStringLiteral("max"), std::numeric_limits<qlonglong>::max()},
        {QStringLiteral("unsigned"), qulonglong(18446744073709551613ull)},
        {QStringLiteral("ratio"), 0.1},
        {QStringLiteral("flags"), QVariantList{true, false}},
        {QStringLiteral("when"),
         QDateTime(QDate(2011, 3, 24), QTime(10, 45, 32), QTimeZone::utc())},
        {QStringLiteral("bytes"), bytes},
        {QStringLiteral("nested"),
         QVariantList{QVariantMap{{QStringLiteral("deep"), QVariantList{QVariantList{}}}},
                      QVariantMap{}}},
    };
}

TEST(PropertyListTest, roundTripKeepsValuesAndTypes) {
    TempTree tree;
    const QString path = tree(QStringLiteral("s.plist"));
    ASSERT_TRUE(PropertyList::writeFile(path, sample()));
    QString error;
    const QVariantMap back = PropertyList::readFile(path, &error).toMap();
    EXPECT_TRUE(error.isEmpty()) << qPrintable(error);
    EXPECT_EQ(back, sample());
    EXPECT_EQ(back.value(QStringLiteral("unsigned")).typeId(), QMetaType::ULongLong);
    EXPECT_EQ(back.value(QStringLiteral("max")).typeId(), QMetaType::LongLong);
    EXPECT_EQ(back.value(QStringLiteral("negative")).typeId(), QMetaType::LongLong);
    EXPECT_EQ(back.value(QStringLiteral("ratio")).toDouble(), 0.1);
}

TEST(PropertyListTest, xmlFormIsTheStandardOne) {
    const QString xml = QString::fromUtf8(PropertyList::toXml(QVariantMap{
        {QStringLiteral("b"), qulonglong(18446744073709551613ull)},
        {QStringLiteral("a"), QStringLiteral("x<&y")},
        {QStringLiteral("c"), qlonglong(-5)},
    }));
    EXPECT_TRUE(xml.startsWith(QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>")));
    EXPECT_TRUE(xml.contains(QStringLiteral("<!DOCTYPE plist PUBLIC")));
    EXPECT_TRUE(xml.contains(QStringLiteral("<plist version=\"1.0\">")));
    EXPECT_TRUE(xml.contains(QStringLiteral("x&lt;&amp;y")));
    EXPECT_TRUE(xml.contains(QStringLiteral("<integer>18446744073709551613</integer>")));
    EXPECT_TRUE(xml.contains(QStringLiteral("<integer>-5</integer>")));
    EXPECT_LT(xml.indexOf(QStringLiteral("<key>a</key>")),
              xml.indexOf(QStringLiteral("<key>b</key>")));
    EXPECT_LT(xml.indexOf(QStringLiteral("<key>b</key>")),
              xml.indexOf(QStringLiteral("<key>c</key>")));
}

TEST(PropertyListTest, integerTextTable) {
    const struct {
        const char* text;
        QVariant expected; // invalid: refused
    } cases[] = {
        {"-5", qlonglong(-5)},
        {" 12\n", qlonglong(12)},
        {"9223372036854775807", std::numeric_limits<qlonglong>::max()},
        {"9223372036854775808", qulonglong(9223372036854775808ull)},
        {"18446744073709551615", std::numeric_limits<qulonglong>::max()},
        {"-9223372036854775808", std::numeric_limits<qlonglong>::min()},
        {"18446744073709551616", QVariant()},
        {"-9223372036854775809", QVariant()},
        {"12a", QVariant()},
        {"1.5", QVariant()},
        {"", QVariant()},
    };
    for (const auto& c : cases) {
        const QByteArray body = QByteArray("<integer>") + c.text + "</integer>";
        const QVariant v = parse(wrap(body.constData()));
        EXPECT_EQ(v.typeId(), c.expected.typeId()) << c.text;
        if (c.expected.isValid()) {
            EXPECT_EQ(v, c.expected) << c.text;
        }
    }
}

TEST(PropertyListTest, malformedInputGivesAnErrorNotACrash) {
    const QByteArray good = PropertyList::toXml(sample());
    QByteArray deep;
    for (int i = 0; i < 5000; ++i)
        deep += "<array>";
    const QByteArray cases[] = {
        "",
        "   \n",
        "garbage",
        "<?xml version=\"1.0\"?>",
        wrap(""),
        wrap("<dict><key>a</key></dict>"),
        wrap("<dict><string>x</string></dict>"),
        wrap("<array><foo/></array>"),
        wrap("<array>text<string>x</string></array>"),
        wrap("<string>a</string><string>b</string>"),
        wrap("<array></dict>"),
        wrap("<string><string>x</string></string>"),
        wrap("<true>x</true>"),
        wrap("<real>fast</real>"),
        wrap("<date>yesterday</date>"),
        wrap("<data>!!!</data>"),
        wrap(deep.constData()),
        good.left(good.size() / 2),
        good + "<plist/>",
        QByteArray("bplist00"),
        QByteArray("bplist00") + QByteArray(40, '\xff'),
    };
    for (const QByteArray& data : cases) {
        QString error;
        EXPECT_FALSE(parse(data, &error).isValid()) << data.left(80).constData();
        EXPECT_FALSE(error.isEmpty()) << data.left(80).constData();
    }
    QString error;
    EXPECT_FALSE(PropertyList::readFile(QStringLiteral("/nonexistent/x.plist"), &error).isValid());
    EXPECT_FALSE(error.isEmpty());
}

TEST(PropertyListTest, corruptedXmlNeverCrashes) {
    const QByteArray good = PropertyList::toXml(sample());
    auto* random = QRandomGenerator::global();
    for (int round = 0; round < 2000; ++round) {
        QByteArray bad = good;
        for (int k = 0; k < 3; ++k)
            bad[random->bounded(bad.size())] = static_cast<char>(random->bounded(256));
        parse(bad); // any result, as long as it returns
    }
}

// Binary property lists made by the library in the test, then read back.
struct Plist {
    plist_t node;
    ~Plist() { plist_free(node); }
    QByteArray bin() const {
        char* out = nullptr;
        uint32_t length = 0;
        plist_to_bin(node, &out, &length);
        QByteArray data(out, static_cast<qsizetype>(length));
        std::free(out);
        return data;
    }
};

TEST(PropertyListTest, readsBinaryPropertyLists) {
    Plist root{plist_new_dict()};
    plist_dict_set_item(root.node, "name", plist_new_string("Frame ü"));
    plist_dict_set_item(root.node, "count", plist_new_uint(42));
    plist_dict_set_item(root.node, "big", plist_new_uint(18446744073709551613ull));
    plist_dict_set_item(root.node, "ratio", plist_new_real(0.5));
    plist_dict_set_item(root.node, "flag", plist_new_bool(1));
    plist_dict_set_item(root.node, "when", plist_new_date(86400, 0));
    plist_dict_set_item(root.node, "blob", plist_new_data("\x00\x01\xff", 3));
    plist_t list = plist_new_array();
    plist_array_append_item(list, plist_new_string("a"));
    plist_array_append_item(list, plist_new_dict());
    plist_dict_set_item(root.node, "list", list);

    TempTree tree;
    const QString path = tree.file(QStringLiteral("b.plist"), root.bin());
    QString error;
    const QVariant back = PropertyList::readFile(path, &error);
    ASSERT_TRUE(back.isValid()) << qPrintable(error);
    const QVariantMap expected{
        {QStringLiteral("name"), QStringLiteral("Frame ü")},
        {QStringLiteral("count"), qlonglong(42)},
        {QStringLiteral("big"), qulonglong(18446744073709551613ull)},
        {QStringLiteral("ratio"), 0.5},
        {QStringLiteral("flag"), true},
        {QStringLiteral("when"), QDateTime(QDate(2001, 1, 2), QTime(0, 0), QTimeZone::utc())},
        {QStringLiteral("blob"), QByteArray("\x00\x01\xff", 3)},
        {QStringLiteral("list"), QVariantList{QStringLiteral("a"), QVariantMap{}}},
    };
    EXPECT_EQ(back.toMap(), expected);
    EXPECT_EQ(back.toMap().value(QStringLiteral("big")).typeId(), QMetaType::ULongLong);
    EXPECT_EQ(back.toMap().value(QStringLiteral("count")).typeId(), QMetaType::LongLong);
}

TEST(PropertyListTest, hostileBinaryInputIsRefused) {
    const auto nested = [](int depth) {
        Plist root{plist_new_array()};
        plist_t at = root.node;
        for (int i = 0; i < depth; ++i) {
            plist_t inner = plist_new_array();
            plist_array_append_item(at, inner);
            at = inner;
        }
        return root.bin();
    };
    EXPECT_TRUE(parse(nested(100)).isValid());
    QString error;
    EXPECT_FALSE(parse(nested(600), &error).isValid());
    EXPECT_FALSE(error.isEmpty());

    // An array holding itself: one object, a one-byte reference to object 0.
    QByteArray loop("bplist00\xa1\x00", 10);
    const qsizetype table = loop.size();
    loop += '\x08';                            // offset table: the array starts at 8
    loop += QByteArray(6, '\0') + "\x01\x01";  // offset and reference sizes
    loop += QByteArray(7, '\0') + '\x01';      // one object
    loop += QByteArray(8, '\0');               // top object 0
    loop += QByteArray(7, '\0') + char(table); // offset table position
    EXPECT_FALSE(parse(loop, &error).isValid());

    const QByteArray good = nested(3);
    EXPECT_FALSE(parse(good.left(good.size() - 5)).isValid());
    auto* random = QRandomGenerator::global();
    Plist dict{plist_new_dict()};
    plist_dict_set_item(dict.node, "k", plist_new_string("value"));
    plist_dict_set_item(dict.node, "n", plist_new_uint(7));
    const QByteArray base = dict.bin();
    for (int round = 0; round < 3000; ++round) {
        QByteArray bad = base;
        const int at = 8 + random->bounded(static_cast<int>(bad.size()) - 8);
        bad[at] = static_cast<char>(random->bounded(256));
        parse(bad); // any result, as long as it returns
    }
}

TEST(PropertyListTest, writeFileRefusesWithoutTouchingTheOldFile) {
    TempTree tree;
    const QString path = tree.file(QStringLiteral("keep.plist"), "old");
    QString error;
    EXPECT_FALSE(
        PropertyList::writeFile(path, QVariantMap{{QStringLiteral("x"), QVariant()}}, &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_FALSE(PropertyList::writeFile(path, QStringLiteral("bell\a"), &error));
    EXPECT_EQ(tree.read(QStringLiteral("keep.plist")), QByteArray("old"));
    EXPECT_FALSE(PropertyList::writeFile(tree(QStringLiteral("missing/dir/x.plist")), 1, &error));
    EXPECT_TRUE(PropertyList::writeFile(path, QVariantList{1, 2}));
    EXPECT_EQ(PropertyList::readFile(path), QVariant(QVariantList{qlonglong(1), qlonglong(2)}));
}

} // namespace
