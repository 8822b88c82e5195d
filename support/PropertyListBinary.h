#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

// The binary half of PropertyList: reading only (we always write XML).
namespace PropertyListBinary {
// Nesting deeper than this is refused rather than walked (a recursion on hostile input).
constexpr int kMaxDepth = 512;
// Reads data that starts with the "bplist00" magic; invalid input gives an invalid QVariant and
// a reason in why.
QVariant read(const QByteArray& data, QString* why);
} // namespace PropertyListBinary
