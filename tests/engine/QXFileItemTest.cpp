#include "QXFileItem.h"

#include <QDateTime>
#include <QDir>
#include <cctype>
#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {
// A compact text form of a component list: Kind:value, joined by "|".
QString shape(const ComponentList& list) {
    QStringList parts;
    for (const auto& c : list) {
        const QString kind = componentKindName(c.kind);
        parts.append(kind.left(kind.indexOf(u' ') < 0 ? 3 : kind.size()) + u':' +
                     FrameValue::toText(c.value));
    }
    return parts.join(u'|');
}

struct ParseCase {
    const char* name;
    const char* components;
    quint32 padding;
};
void PrintTo(const ParseCase& c, std::ostream* os) {
    *os << c.name;
}

class ParseTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ParseTest, ParsesAndRebuildsTheName) {
    const ParseCase& c = GetParam();
    const QString name = QString::fromUtf8(c.name);
    auto item = QXFileItem::fileItemWithFile(u"/shots/"_s + name);
    EXPECT_EQ(shape(item->components()).toStdString(), c.components);
    EXPECT_EQ(item->paddingLength(), c.padding);
    EXPECT_EQ(item->fileName(), name);
    EXPECT_EQ(item->proposedFileName(), name);
    EXPECT_EQ(item->containerDir(), u"/shots"_s);
    EXPECT_EQ(item->fullPath(), u"/shots/"_s + name);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Names, ParseTest, ::testing::Values(
    ParseCase{"MyImage.0001.jpg", "Fil:MyImage|Sep:.|Frame Number:1|Sep:.|File Extension:jpg", 4},
    ParseCase{"MyImage0001.jpg", "Fil:MyImage0001|Sep:.|File Extension:jpg", 0},
    ParseCase{"0042.tif", "Frame Number:42|Sep:.|File Extension:tif", 4},
    ParseCase{"shot_12_v2.mov", "Fil:shot|Sep:_|Fil:12|Sep:_|Fil:v2|Sep:.|File Extension:mov", 0},
    ParseCase{".hidden", "Fil:|Sep:.|Fil:hidden", 0},
    ParseCase{"take_.mov", "Fil:take|Sep:_|Sep:.|File Extension:mov", 0},
    ParseCase{"a__b.txt", "Fil:a|Sep:_|Fil:|Sep:_|Fil:b|Sep:.|File Extension:txt", 0},
    ParseCase{"My Image (2).jpg", "Fil:My Image |Sep:(|Fil:2|Sep:)|Sep:.|File Extension:jpg", 0},
    ParseCase{"clip.", "Fil:clip|Sep:.", 0},
    ParseCase{"x.0", "Fil:x|Sep:.|File Extension:0", 0},
    ParseCase{"x.0.y", "Fil:x|Sep:.|Frame Number:0|Sep:.|File Extension:y", 1},
    // Too long for the native integer: text, and no frame number.
    ParseCase{"s.99999999999999999999.exr", "Fil:s|Sep:.|Fil:99999999999999999999|Sep:.|File Extension:exr", 0},
    ParseCase{"s.9223372036854775807.exr", "Fil:s|Sep:.|Frame Number:9223372036854775807|Sep:.|File Extension:exr", 19},
    // Digits of another script are decimal digits but are kept as text.
    ParseCase{"s.\xd9\xa1\xd9\xa2.exr", "Fil:s|Sep:.|Fil:\xd9\xa1\xd9\xa2|Sep:.|File Extension:exr", 0},
    ParseCase{"{a}[b]<c>#d", "Fil:|Sep:{|Fil:a|Sep:}|Fil:|Sep:[|Fil:b|Sep:]|Fil:|Sep:<|Fil:c|Sep:>|Fil:|Sep:#|Fil:d", 0}
), [](const ::testing::TestParamInfo<ParseCase>& i) {
    std::string name = std::to_string(i.index) + '_';
    for (const char c : std::string_view(i.param.name))
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
});
// clang-format on

// Padding goes in front of the whole text; setting a number sets, inserts and removes.
TEST(QXFileItem, SetFrameNumberPadsSetsInsertsAndRemoves) {
    const auto n = [](qulonglong v) { return QVariant::fromValue(v); };
    const struct {
        const char* path;
        int padding; // set first unless negative
        QVariant number;
        const char* expected;
    } cases[] = {
        {"/a/b.0001.c", -1, QVariant::fromValue<qlonglong>(-5), "b.00-5.c"},
        {"/a/b.0001.c", -1, n(123456), "b.123456.c"}, // never shortened
        {"/a/b.0001.c", 0, n(7), "b.7.c"},
        {"/a/clip.mov", -1, n(5), "clip.5.mov"},
        {"/a/clip.mov", 4, n(5), "clip.0005.mov"},
        {"/a/clip", -1, n(3), "clip.3"},
        {"/a/clip.0007.dpx", -1, QVariant(), "clip.dpx"},
    };
    for (const auto& c : cases) {
        auto item = QXFileItem::fileItemWithFile(QString::fromUtf8(c.path));
        if (c.padding >= 0) item->setPaddingLength(quint32(c.padding));
        item->setFrameNumber(c.number);
        EXPECT_EQ(item->proposedFileName(), QString::fromUtf8(c.expected)) << c.expected;
        EXPECT_EQ(item->hasFrameNumber(), c.number.isValid()) << c.expected;
    }
    // Only the extension: no room before it, which raises.
    auto extOnly = std::make_shared<QXFileItem>();
    extOnly->setComponents({NameComponent::extension(u"jpg"_s)});
    EXPECT_ANY_THROW(extOnly->setFrameNumber(n(1)));
}

TEST(QXFileItem, PreviewIsAnIndependentCopy) {
    auto item = QXFileItem::fileItemWithFile(u"/a/shot.0001.exr"_s);
    FileItemPtr preview = item->previewObject();
    ASSERT_TRUE(preview);
    EXPECT_EQ(preview->fileName(), item->fileName());
    EXPECT_FALSE(preview->previewObject()); // a preview has no preview of its own

    preview->setFrameNumber(QVariant::fromValue<qulonglong>(9));
    preview->synchronize();
    EXPECT_EQ(preview->fileName(), u"shot.0009.exr"_s);
    EXPECT_EQ(item->fileName(), u"shot.0001.exr"_s);

    // The preview made at creation shows the item as it was, not as it became.
    auto later = QXFileItem::fileItemWithFile(u"/a/x.jpg"_s);
    later->setIsDir(true);
    later->setFileName(u"y.jpg"_s);
    EXPECT_EQ(later->previewObject()->fileName(), u"x.jpg"_s);
    EXPECT_FALSE(later->previewObject()->isDir());
    // Components of a renamed item stay those of the name it was parsed from.
    EXPECT_EQ(later->components().first().text(), u"x"_s);

    item->resetPreview();
    EXPECT_EQ(item->previewObject()->fileName(), u"shot.0001.exr"_s);
}

TEST(QXFileItem, ArchiveRoundTripsTheSixValues) {
    auto item = QXFileItem::fileItemWithFile(u"/a/shot.0010.exr"_s);
    item->setIsDir(true);
    ComponentList list = item->components();
    list.append({ComponentKind::Date, QDateTime::fromSecsSinceEpoch(1300000000)});
    item->setComponents(list);

    const FileItemPtr back = QXFileItem::decode(item->encode());
    ASSERT_TRUE(back);
    EXPECT_EQ(back->containerDir(), item->containerDir());
    EXPECT_EQ(back->fileName(), item->fileName());
    EXPECT_EQ(back->paddingLength(), 4u);
    EXPECT_EQ(back->components(), item->components());
    EXPECT_TRUE(back->isDir());

    QByteArray truncated = item->encode();
    truncated.chop(5);
    EXPECT_FALSE(QXFileItem::decode(truncated));
    EXPECT_FALSE(QXFileItem::decode(QByteArray("garbage")));
}

TEST(QXFileItem, PathsTildeAndDateComponents) {
    const QString home = QDir::homePath();
    auto item = QXFileItem::fileItemWithFile(u"~/renders/a.1.exr"_s);
    EXPECT_EQ(item->containerDir(), home + u"/renders"_s);
    EXPECT_EQ(item->displayName(), u"~/renders/a.1.exr"_s);
    auto root = QXFileItem::fileItemWithFile(u"/top.txt"_s);
    EXPECT_EQ(root->fullPath(), u"/top.txt"_s);
    auto dated = std::make_shared<QXFileItem>();
    const QDateTime when(QDate(2011, 3, 24), QTime(10, 45, 32), Qt::OffsetFromUTC, 3600);
    dated->setComponents({NameComponent::filename(u"x_"_s), {ComponentKind::Date, when}});
    const QString name = dated->proposedFileName();
    // Local time with its offset, e.g. "x_2011-03-24 09:45:32 +0000" in UTC.
    EXPECT_TRUE(name.startsWith(u"x_2011-03-24 "_s));
    EXPECT_EQ(name.size(), u"x_2011-03-24 10:45:32 +0100"_s.size());
}
} // namespace
