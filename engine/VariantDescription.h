#pragma once

#include <QString>
#include <QVariant>

// The text form in which the log shows a dictionary or an array:
// { key = value; ... } and ( item, ... ), nested and indented by four spaces.
QString describeVariant(const QVariant& value, int indent = 0);
