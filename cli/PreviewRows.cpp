#include "PreviewRows.h"

#include "InTwoHalves.h"
#include "MyDocument.h"
#include "ProposedName.h"

PreviewRows PreviewRows::gather(const MyDocument& doc) {
    const FileList files = doc.fileArray();
    const qsizetype count = files.size();
    PreviewRows rows;
    rows.names.resize(count);
    rows.newNames.resize(count);
    rows.conflicting.resize(count);
    rows.problems.resize(count);
    struct Tally {
        int changed = 0, conflicts = 0, invalid = 0;
    } halves[2];
    inTwoHalves(count, kTwoHalvesMinimum, [&](qsizetype from, qsizetype to) {
        Tally& tally = halves[from == 0 ? 0 : 1];
        for (qsizetype i = from; i < to; ++i) {
            const FileItemPtr preview = files[i]->previewObject();
            rows.names[i] = files[i]->fileName();
            rows.newNames[i] = preview ? preview->fileName() : rows.names[i];
            rows.conflicting[i] = preview && preview->isConflicting();
            if (rows.newNames[i] != rows.names[i]) ++tally.changed;
            if (rows.conflicting[i]) ++tally.conflicts;
            if (preview) rows.problems[i] = ProposedName::problem(rows.newNames[i]);
            if (!rows.problems[i].isEmpty()) ++tally.invalid;
        }
    });
    rows.changed = halves[0].changed + halves[1].changed;
    rows.conflicts = halves[0].conflicts + halves[1].conflicts;
    rows.invalid = halves[0].invalid + halves[1].invalid;
    return rows;
}
