#pragma once

#include <QStringList>

class MyDocument;
struct PreviewRows;

// What seqmate-cli prints on standard output: the batch's items, the preview
// (as a table or as JSON) and the gap check's gaps. The JSON forms are one
// document each, so a script never has to read prose.

// Without a task: every item with its parsed components, then the count.
void printItems(const MyDocument& doc, bool fullPaths);
// The same as one JSON array, one object per item: {"path", "name", "folder",
// "padding", "components"}, each component a one-key object {kind: value}
// (a frame number as a JSON number).
void printItemsJson(const MyDocument& doc);
// One JSON array of {"path", "old", "new", "conflict"} objects, in list order.
void printJson(const MyDocument& doc, const PreviewRows& rows);
// Old name -> new name, one row per item, then the totals.
void printTable(const MyDocument& doc, const PreviewRows& rows, bool fullPaths);
// The gap check's gaps as one JSON array of strings ("4", "6-8").
void printGapsJson(const QStringList& gaps);
