// Compiled, not run: rows stream into a writer of their own kind, and into a writer of another kind
// they do not compile. The build defines WRITER as the writer type to try.
#include "output/ImageWriter.h"
#include "RowPipeline.h"

bool streamInto(LineRepeatRowSource& rows, WRITER& writer) {
    return streamRows(rows, nullptr, [&](RowOf<RowKind::LineRepeat> row) { return writer.writeRow(row); });
}
