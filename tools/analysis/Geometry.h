// Where the sent picture lies in a capture: a coarse search over scale and offset on gradient profiles,
// then a fit of the card's straight neutral edges and lines, measured alike in the reference and the
// capture, so that any symmetric blur of the chain (a scaler, a codec) leaves their positions.
#pragma once

#include "analysis/Analysis.h"
#include "analysis/Picture.h"

namespace pm5544::analysis {

struct GeometryFit {
    Geometry geometry;
    int features = 0;       // edge and line measurements that agree with the fit
    double residual = 0;    // their RMS distance from it, capture pixels
    double agreement = 0;   // share of the measurements that agree
    double similarity = 0;  // correlation of the capture's structure with the placed reference
};

// The planes that carry the card's neutral structure: luma, or G' of an R'G'B' picture.
int structurePlane(const Picture& picture);

// Throws NoCardFound when no placement of the card explains the capture's edges.
GeometryFit fitGeometry(const Picture& reference, const Picture& capture);

}  // namespace pm5544::analysis
