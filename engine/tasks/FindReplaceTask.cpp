// Find and replace over the whole file name as one string (the extension
// only when asked), plain or as an ICU regular expression; the item then
// parses the new name again.
#include "IcuRegex.h"
#include "MyDocument.h"
#include "QXException.h"

#include <memory>

namespace {

struct FindSettings {
    bool hasFind = false;
    bool hasReplace = false;
    QString find;
    QString replace;
    bool matchCase = false;
    bool includeExtension = false;
    bool regex = false;

    explicit FindSettings(const QVariantMap& s) {
        const QVariant f = s.value(QStringLiteral("find"));
        const QVariant r = s.value(QStringLiteral("replace"));
        hasFind = f.isValid() && !f.isNull();
        hasReplace = r.isValid() && !r.isNull();
        find = f.toString();
        replace = r.toString();
        // Anything but a true value searches without regard to case.
        matchCase = s.value(QStringLiteral("matchCase")).toBool();
        includeExtension = s.value(QStringLiteral("includeExtension")).toBool();
        regex = s.value(QStringLiteral("regex")).toBool();
    }
};

// One replacer per task run: the pattern is compiled (or fetched from the
// cache) at the first name that needs it, so a bad pattern fails the task at
// its first item.
class Replacer {
public:
    explicit Replacer(const FindSettings& settings) : m_s(settings) {}

    QString apply(const QString& subject) {
        if (!m_s.hasFind || !m_s.hasReplace)
            throw QXException(QXException::invalidArgument(),
                              QStringLiteral("find and replace needs both a search and a "
                                             "replacement text"));
        if (m_s.regex)
            return regex(m_s.matchCase ? 0 : UREGEX_CASE_INSENSITIVE)
                .replaceAll(subject, m_s.replace);
        // An empty literal finds nothing.
        if (m_s.find.isEmpty()) return subject;
        if (m_s.matchCase)
            return QString(subject).replace(m_s.find, m_s.replace, Qt::CaseSensitive);
        // Ignoring case with ICU's full case folding (ß finds SS), which a
        // simple per-character comparison would miss.
        return regex(UREGEX_LITERAL | UREGEX_CASE_INSENSITIVE)
            .replaceAllLiteral(subject, m_s.replace);
    }

private:
    IcuRegex& regex(uint32_t flags) {
        if (!m_regex) m_regex = std::make_unique<IcuRegex>(m_s.find, flags);
        return *m_regex;
    }

    const FindSettings& m_s;
    std::unique_ptr<IcuRegex> m_regex;
};

} // namespace

bool MyDocument::processFindAndReplace(const QVariantMap& s, const FileList& files) {
    const FindSettings settings(s);
    Replacer replacer(settings);
    return runTaskContract(
        "-[MyDocument processFindAndReplace:files:]", s, files,
        [&](QXFileItem& t) {
            const QString name = QXFileItem::lastPathComponent(t.fileName());
            const QString extension =
                settings.includeExtension ? QString() : QXFileItem::pathExtension(name);
            QString subject =
                settings.includeExtension ? name : QXFileItem::deletingPathExtension(name);
            if (!subject.isEmpty()) {
                // A replacement that would erase the whole name keeps it.
                const QString replaced = replacer.apply(subject);
                if (!replaced.isEmpty()) subject = replaced;
            }
            if (!extension.isEmpty()) subject += u'.' + extension;
            t.generateComponentsFromFile(subject);
        },
        false);
}
