// Fuzzes file names through the name parser and the text tasks:
// - parsing a name and rebuilding it gives the same text, also through the
//   item made for it and its archived form;
// - the character-position, case and plain find-and-replace tasks never fail
//   or crash on any name and settings, leave the item itself alone, and leave
//   a synchronized preview; the removals never lengthen a name.
#include "MyDocument.h"
#include "QXFileItem.h"

#include <QDir>
#include <QTemporaryDir>
#include <cstdio>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>

using namespace Qt::Literals::StringLiterals;

namespace {

void check(bool ok, const char* what, const QString& name, const QString& got = QString()) {
    if (ok) return;
    std::fprintf(stderr, "name_fuzz: %s\n  name: %s\n  got:  %s\n", what,
                 name.toUtf8().toHex(' ').constData(), got.toUtf8().toHex(' ').constData());
    std::abort();
}

// A name as a folder listing yields it: no "/" and no NUL.
QString nameFrom(FuzzedDataProvider& fdp, bool utf16) {
    QString name;
    if (utf16) {
        const std::vector<uint8_t> bytes = fdp.ConsumeRemainingBytes<uint8_t>();
        for (size_t i = 0; i + 1 < bytes.size(); i += 2)
            name.append(QChar(static_cast<char16_t>(bytes[i] | (bytes[i + 1] << 8))));
    } else {
        name = QString::fromStdString(fdp.ConsumeRemainingBytesAsString());
    }
    for (QChar& c : name)
        if (c == u'/' || c == QChar(0)) c = u'_';
    return name;
}

// A character-task setting: a small number most of the time, else any text.
QString numberSetting(FuzzedDataProvider& fdp) {
    if (fdp.ConsumeBool()) return QString::fromStdString(fdp.ConsumeRandomLengthString(24));
    return QString::number(fdp.ConsumeIntegralInRange<int>(-3, 40));
}

void checkRoundTrip(const QString& name, const FileItemPtr& item) {
    quint32 padding = 0;
    const QString rebuilt = QXFileItem::buildName(QXFileItem::parseName(name, &padding), padding);
    check(rebuilt == name, "parse and rebuild differ", name, rebuilt);
    check(item->fileName() == name && item->proposedFileName() == name &&
              item->containerDir() == u"/tmp/x"_s,
          "item differs", name, item->containerDir() + u'/' + item->proposedFileName());
    const FileItemPtr decoded = QXFileItem::decode(item->encode());
    check(decoded != nullptr, "archive does not decode", name);
    check(decoded->fileName() == name && decoded->components() == item->components() &&
              decoded->paddingLength() == item->paddingLength(),
          "archive round trip differs", name, decoded->fileName());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Keep anything the engine writes (logs) out of the real home folder.
    static QTemporaryDir home(QDir::tempPath() + u"/seqmate-fuzz-XXXXXX"_s);
    const QByteArray h = home.path().toUtf8();
    setenv("HOME", h.constData(), 1);
    setenv("XDG_DATA_HOME", QByteArray(h + "/.local/share").constData(), 1);
    setenv("XDG_CONFIG_HOME", QByteArray(h + "/.config").constData(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const bool utf16 = fdp.ConsumeBool();
    const QString position = numberSetting(fdp), rangeStart = numberSetting(fdp);
    const QString rangeEnd = numberSetting(fdp);
    const QString text = QString::fromStdString(fdp.ConsumeRandomLengthString(16));
    const bool matchCase = fdp.ConsumeBool(), includeExtension = fdp.ConsumeBool();
    const QString name = nameFrom(fdp, utf16);
    if (name.isEmpty()) return 0;

    const FileItemPtr item = QXFileItem::fileItemWithFile(u"/tmp/x/"_s + name);
    checkRoundTrip(name, item);

    static MyDocument* doc = new MyDocument(nullptr); // lives for the whole run
    doc->setFileArray({item});
    const QString extension = QXFileItem::pathExtension(name);
    const QString dotExtension = extension.isEmpty() ? QString() : u'.' + extension;
    // clang-format off
    const QVariantMap s = {{u"preview"_s, true}, {u"text"_s, text}, {u"position"_s, position},
        {u"charCount"_s, position}, {u"rangeStart"_s, rangeStart}, {u"rangeEnd"_s, rangeEnd},
        {u"find"_s, text}, {u"replace"_s, rangeStart}, {u"matchCase"_s, matchCase},
        {u"includeExtension"_s, includeExtension}, {u"regex"_s, false}};
    // clang-format on

    const struct {
        const char* label;
        bool (MyDocument::*task)(const QVariantMap&, const FileList&);
        bool removes; // only ever deletes characters of the base name
        bool inserts; // adds the text and keeps every character
    } tasks[] = {
        {"insert", &MyDocument::processInsertCharactersAtPosition, false, true},
        {"replace range", &MyDocument::processReplaceCharactersInRange, false, false},
        {"remove from start", &MyDocument::processRemoveCharactersFromStart, true, false},
        {"remove from end", &MyDocument::processRemoveCharactersFromEnd, true, false},
        {"remove range", &MyDocument::processRemoveCharacterRange, true, false},
        {"capitalize", &MyDocument::processCapitalizeWords, false, false},
        {"uppercase", &MyDocument::processUppercase, false, false},
        {"find and replace", &MyDocument::processFindAndReplace, false, false},
    };
    for (const auto& t : tasks) {
        check((doc->*t.task)(s, {item}), t.label, name);
        check(item->fileName() == name, "the item itself changed", name, item->fileName());
        const FileItemPtr preview = item->previewObject();
        const QString proposed = preview->fileName();
        check(proposed == preview->proposedFileName(), "preview not synchronized", name, proposed);
        if (t.removes) {
            check(proposed.size() <= name.size(), "a removal lengthened the name", name, proposed);
            check(proposed.endsWith(dotExtension), "a removal lost the extension", name, proposed);
        }
        if (t.inserts && !text.contains(u'/'))
            check(proposed.size() == name.size() + text.size(), "insert lost characters", name,
                  proposed);
    }
    return 0;
}
