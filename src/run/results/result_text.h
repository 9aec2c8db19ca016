// Small pieces that every result-file writer composes its text with: lines, the rows of cut curves,
// and the one way a composed text reaches the screen or an open file.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/text_file.h"

namespace tervo {

struct DataListElement;

// A line and its line end; an empty line.
void AppendLine(std::string& text, const std::string& line);
void AppendBlank(std::string& text);

// The value of a curve at index i, 0 beyond its end.
double CurveValue(const std::vector<double>& curve, int i);

// A row that a cut curve did not reach, by `ActionListMode`: nothing, or `columns` cells of zeros
// or of blanks.
void AppendFillerRow(std::string& text, int columns);

// The rows of a curve of `points` points: `row(i)` for each of the first `done` points that the
// curve holds (`held` values), the filler of a cut curve (`columns` cells) for the others.
void AppendCurveRows(std::string& text, int points, int done, size_t held, int columns,
                     const std::function<std::string(int)>& row);

// Whether a writer can serve `mode` (the screen or an open file); reports the other modes.
bool IsResultOutputMode(int mode);

// Sends a composed text to the screen (standard output) or to the caller's open file.  0, or -1
// after a message.
int EmitResultText(int mode, TextFile* file, const std::string& text);

// Opens `path` for writing (a bare name goes into the folder of `filetype`; a name without an
// extension gets `extension`), lets `write` fill the open file and closes it.  The result of
// `write`, or -1 (reported) when the file cannot be opened.
int WriteResultToPath(const std::string& path, int filetype, const char* extension,
                      const std::function<int(TextFile&)>& write);

// The curve files: one block for each simulation of the result list that has the curve, in list
// order.  With none, the message `nothingYet` and -1.
int WriteCurveBlocks(int mode, TextFile* file, const std::function<bool(const DataListElement&)>& hasCurve,
                     const std::function<void(std::string&, const DataListElement&)>& block,
                     const char* nothingYet);

} // namespace tervo
