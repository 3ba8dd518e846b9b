// The abstract test pattern: geometry, palette, transitions, primitives, loops and text.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "colour/ColourSpace.h"
#include "colour/Pixel.h"
#include "messages/Messages.h"
#include "pattern/RowSource.h"
#include "pattern/Scan.h"
#include "text/TTFont.h"
#include "text/TextBlocks.h"

typedef struct _cairo cairo_t;
typedef struct _PangoLayout PangoLayout;

class TovaKelmPatternFile;

namespace PatternGen {

enum sampling_e { Sampling_444 = 444, Sampling_422 = 422, Sampling_420 = 420 };

enum quadrant_e { Quadrant_None = 0, Quadrant_TR = 1, Quadrant_BR = 2, Quadrant_BL = 3, Quadrant_TL = 4 };

// Why a pattern drawn on the full canvas is refused a quadrant.
constexpr const char* quadrantRefusal = "Quadrant mode is depracated";

}  // namespace PatternGen

class PatternSpec {
public:
    PatternSpec();
    PatternSpec(const PatternSpec&) = delete;
    PatternSpec& operator=(const PatternSpec&) = delete;

    // Pattern interface, in slot order.
    virtual void setup() = 0;
    virtual Pixel body(int x, int y) = 0;
    virtual void getLineRepeats(std::vector<std::pair<int, int>>& list);
    virtual bool useFullCanvasSize();
    // body() along row y, columns x0 .. x1 - 1, in order. The default asks body() for each pixel into
    // `scratch`; a pattern that keeps its rows may return them in place. Valid until the next call
    // into the pattern.
    virtual const Pixel* bodyRow(int y, int x0, int x1, std::vector<Pixel>& scratch);

    bool init(int width, int height, int aspectNum, int aspectDen, PatternGen::colorAxes_e axes,
              PatternGen::sampling_e sampling, int bits, PatternGen::quadrant_e quadrant, int optionValue,
              bool edgeTaperOff);

    // Geometry helpers: integer products left to right, one division truncating toward zero. Products
    // with the aspect ratio are formed in 64 bits, so large rasters cannot overflow them.
    int heightFraction(int num, int den) const;
    int widthFraction(int num, int den) const;
    int fractionOf(int value, int num, int den) const;
    int aspectAdjustedVertFraction(int num, int den) const;
    int aspectAdjustedHorizFraction(int num, int den) const;
    // A horizontal coordinate or length converted into line units with the display aspect ratio.
    int toLineUnits(int value) const;
    // The remainder made non-negative by adding the divisor once.
    static int positiveMod(int value, int divisor);
    bool insideCircleHeight(int x, int y, int cx, int cy, int r) const;
    bool insideCircleWidth(int x, int y, int cx, int cy, int r) const;

    // Overlay rasters (cairo RGB30 layout).
    int newLayer();
    unsigned getOverlay(unsigned layer, int originX, int y, int x, int stride) const;

    // Transitions.
    void noRiseTime();
    double freqToPixels(double frequencyHz) const;
    void calculateTransition(std::deque<double>& coefficients, double riseTime, double clockMHz) const;
    void calculateTransition(double riseTime, double clockMHz);

    // Drawing primitives; the variadic arguments are Pixel pointers.
    bool bars(int x, Pixel& out, int count, int span, ...);
    bool barsLayered(int x, Pixel& inout, int count, int span, ...);
    bool barsLayered(int x, Pixel& inout, int count, int* widths, ...);
    Pixel squareWave(int x, int period, Pixel& low, Pixel& high);
    bool grid(int x, int y, int pitch, int thickness, Pixel& inout, Pixel line);
    bool gridVertical(int x, int y, int pitch, int thickness, Pixel& inout, Pixel line);
    bool gridFlipVphase(int x, int y, int pitch, int thickness, Pixel& inout, Pixel line);
    void edge(Pixel& inout, int steps, Pixel target, int step);
    void edgeInv(Pixel& inout, int steps, Pixel target, int step);
    bool vertLineAt(int centre, int x, int thickness, Pixel left, Pixel line, Pixel right, Pixel& out);

    // Rendering loops: full frame (RGBA/CrYCbA x16), line repeats (3 samples x16), device file.
    bool run_body(int optionValue, int width, int height, unsigned short* frame);
    bool run_body(int optionValue, int width, int& height, std::vector<std::pair<int, int>>& lineRepeats,
                  unsigned char* buffer);
    bool run_body(int optionValue, int width, int height, std::vector<std::pair<int, int>>& lineRepeats,
                  TovaKelmPatternFile& file);
    // The same loops as row producers, for streaming; the line-repeat and device-file forms have the
    // pattern fill lineRepeats, and the device-file form warns about widths the generators refuse. A
    // full-canvas pattern refuses quadrant mode here, before any row.
    // Rows firstRow .. endRow - 1 of the full frame (endRow -1: to the bottom). A range that starts
    // below the top starts afresh: exact for a first row that begins a group of rows sharing chroma
    // (PatternGen::chromaRowGroup) of a pattern drawn from column 0.
    std::unique_ptr<FullFrameRowSource> fullFrameRows(int width, int height, int firstRow = 0, int endRow = -1);
    std::unique_ptr<LineRepeatRowSource> lineRepeatRows(int width, int height,
                                                        std::vector<std::pair<int, int>>& lineRepeats);
    std::unique_ptr<DeviceFileRowSource> deviceFileRows(int width, int height,
                                                        std::vector<std::pair<int, int>>& lineRepeats);

    // Text.
    int textCursor(int x, int y);
    int textAlign(TextSlug::horizAlign_e horiz, TextSlug::vertAlign_e vert);
    int textSize(int sizePercent);
    int defineFont(const char* family);
    int setText(const char* text);
    int render_text(int width, int height);
    void rendertextInternal(cairo_t* cr, int width, int height);
    void calcSlug(int height, PangoLayout* layout, TextSlug* slug, bool isLast, bool rotated);
    int renderSlug(cairo_t* cr, PangoLayout* layout, int x, int y, TextSlug* slug, double lineWidth, bool rotated);
    PangoFontDescription* getFont(int fontIndex, int height, int sizePercent, int& pixelSize);
    // One line of text in font 0, bold and upright, drawn as `fit` says into a coverage raster of the
    // width and height the caller set (its levels are replaced).
    void renderTextInto(TextCoverage& coverage, const std::string& text, const TextFit& fit);

    // Members, in declaration order.
    cairo_t* cairoContext = nullptr;
    std::vector<TTFont> fonts;
    std::vector<TextLine*> textLines;
    std::vector<unsigned char*> layers;
    int textCursorX = 0;
    int textCursorY = 0;
    int textSizePercent = 100;
    TextSlug::horizAlign_e textHorizAlign = TextSlug::centre;
    TextSlug::vertAlign_e textVertAlign = TextSlug::middle;
    int width = 3840;
    int height = 2160;
    int aspectNum = 16;
    int aspectDen = 9;
    ColourSpace colourSpace{PatternGen::Colour_YCbCr_709, 12};
    PatternGen::sampling_e sampling = PatternGen::Sampling_444;
    // Set before init; interlaced 4:2:0 frames subsample chroma per field.
    PatternGen::Scan scan = PatternGen::Scan::Progressive;
    PatternGen::quadrant_e quadrant = PatternGen::Quadrant_None;
    bool riseTimeEnabled = true;
    bool edgeTaperOff = false;
    int transitionLength = 3;
    // Colour bars in the output colour space: white, yellow, cyan, green, magenta, red, blue, black.
    // (The 100% set cannot share its name with the bars() primitive.)
    Pixel bars100[8];
    Pixel bars75[8];
    std::deque<double> lumaTransition;
    std::deque<double> chromaTransition;
    int optionValue = 0;
    // Where the lines reported while setting up go (the geometry, the font found, warnings); none
    // until the pattern's owner gives it one.
    MessageSink messages;
    // Pango ends the process when memory runs out. A host that must not end that way can have the first
    // text tried here before it is drawn for real: false means it would not fit, and the card reports
    // a shortfall instead. Null: no trial.
    std::function<bool(const std::function<void()>& draw)> textTrial;

protected:
    // Patterns are never deleted through a PatternSpec pointer.
    ~PatternSpec();

private:
    void releaseText();
};
