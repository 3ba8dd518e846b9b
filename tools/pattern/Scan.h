// How a frame is scanned: whole, or as two interlaced fields (the top one holding rows 0, 2, 4, ...),
// either field first in time. Both fields of a frame show the same picture, so the scan changes only
// how 4:2:0 chroma is subsampled (per field) and what a video file says about field order.
#pragma once

namespace PatternGen {

// The numbers are the C API's pm5544_scan values.
enum class Scan { Progressive = 0, InterlacedTopFirst = 1, InterlacedBottomFirst = 2 };

inline bool isInterlaced(Scan scan) { return scan != Scan::Progressive; }

// 4:2:0 rows share chroma in groups: a row pair, or in an interlaced frame a pair of rows of each field
// (four frame rows). Other samplings give every row its own.
inline int chromaRowGroup(int sampling, Scan scan) {
    if (sampling != 420) return 1;
    return isInterlaced(scan) ? 4 : 2;
}

// Whether frame row y of a 4:2:0 frame carries chroma of its own (the first row of its field's pair),
// rather than repeating that of the row of its field above; the field is y's parity when interlaced.
inline bool takesOwnChroma(int y, Scan scan) { return isInterlaced(scan) ? y % 4 < 2 : y % 2 == 0; }

// The chroma plane row that frame row y's chroma fills at `sampling`, or -1 for a 4:2:0 row that
// repeats the chroma above it. Interlaced 4:2:0 planes alternate their rows between the fields.
inline int chromaPlaneRow(int sampling, Scan scan, int y) {
    if (sampling != 420) return y;
    if (!takesOwnChroma(y, scan)) return -1;
    return isInterlaced(scan) ? y / 4 * 2 + y % 2 : y / 2;
}

}  // namespace PatternGen
