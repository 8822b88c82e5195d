#include "PathArguments.h"

#include <QStringDecoder>

namespace {
// Decodes bytes as strict UTF-8; nullopt on any malformed sequence.
std::optional<QString> decodeStrict(QByteArrayView bytes) {
    // A byte-order mark is part of a name, not a marker to drop.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless |
                                                     QStringDecoder::Flag::ConvertInitialBom);
    QString text = decoder(bytes);
    if (decoder.hasError()) return std::nullopt;
    return text;
}

// The length of the UTF-8 sequence a lead byte announces (0: not a lead byte).
qsizetype sequenceLength(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return 2;
    if (lead >= 0xE0 && lead <= 0xEF) return 3;
    if (lead >= 0xF0 && lead <= 0xF4) return 4;
    return 0;
}
} // namespace

std::optional<QString> pathFromArgument(const std::string& argument) {
    return decodeStrict(QByteArrayView(argument.data(), static_cast<qsizetype>(argument.size())));
}

QString escapedArgument(const std::string& argument) {
    const QByteArrayView bytes(argument.data(), static_cast<qsizetype>(argument.size()));
    QString out;
    for (qsizetype i = 0; i < bytes.size();) {
        const auto lead = static_cast<unsigned char>(bytes[i]);
        const qsizetype length = sequenceLength(lead);
        if (length > 0 && i + length <= bytes.size()) {
            // The decoder judges the sequence (overlong forms, surrogates).
            if (const auto text = decodeStrict(bytes.sliced(i, length))) {
                out += *text;
                i += length;
                continue;
            }
        }
        out += QStringLiteral("\\x%1").arg(lead, 2, 16, QLatin1Char('0'));
        ++i;
    }
    return out;
}
