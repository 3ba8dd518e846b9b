// The PM5544 test card: palette per encoding, layout in 576ths of the height, pre-rendered
// frame with its own edge shaping, and a per-pixel look-up for the rendering loops.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "pattern/PatternWrapper.h"
#include "colour/Pixel.h"

class PhilipsPm5544Spec final : public PatternSpec {
public:
    PhilipsPm5544Spec();
    ~PhilipsPm5544Spec();

    // Chooses the palette, derives the size-dependent parameters and renders and shapes the whole frame.
    void setup() override;
    // The finished pixel from cardFrame (bounds-checked).
    Pixel body(int x, int y) override;
    bool useFullCanvasSize() override;

    // The card's pixel at canvas position (x, y), with hard edges.
    Pixel render(int x, int y);

    // The padded line buffer of row y before shaping: black padding, render(x, y), black padding.
    // The reference fill calls render() for every pixel; the fast fill, which setup() uses, looks
    // the same pixels up in per-column tables. Both are public so that tests can compare them.
    void fillLineReference(int y, std::vector<Pixel>& line);
    void fillLineFast(int y, std::vector<Pixel>& line);
    // The whole frame built the slow way (reference fill, every pixel shaped on its own); after
    // init() it equals cardFrame.
    std::vector<Pixel> referenceFrame();

    // Palette, set by setup() for the output colour axes.
    Pixel black;
    Pixel grey20;
    Pixel grey40;
    Pixel grey50;  // background
    Pixel grey60;
    Pixel grey75;  // light half of the square wave
    Pixel grey80;
    Pixel white;
    Pixel yellow75;
    Pixel cyan75;
    Pixel green75;
    Pixel magenta75;
    Pixel red75;
    Pixel blue75;
    Pixel yellow100;  // bottom band of the circle
    Pixel red100;     // box in the bottom band

    int savedTransitionLength = 0;  // framework transitionLength before setup() switched it off
    int squareWavePeriod;           // pixels
    int burstStartFreq;             // Hz, first grating packet
    int burstFreqStep;              // Hz added per further packet
    int idBoxWidth = 0;             // pixels
    int pulseBarWidth = 0;          // pixels
    int redBoxWidth = 0;            // pixels

    // The whole pre-rendered frame, width x height, row-major.
    std::vector<Pixel> cardFrame;

private:
    // Bands inside the circle, top to bottom.
    enum class Band {
        TopCap,
        IdBox,
        WhiteBar,
        SquareWave,
        Centre,
        ColourBars,
        Gratings,
        GreyScale,
        BlackBar,
        BottomCap
    };
    // Per-column tables of the fast line fill; built on first use, released at the end of setup().
    struct LineTables;
    // Which tables and which column intervals make up one row in the fast line fill.
    struct RowLayout;

    // Layout unit: k/576 of the picture height.
    int h(int k) const { return heightFraction(k, 576); }

    void choosePalette();
    void deriveParameters();
    Pixel shapePixel(const std::vector<Pixel>& line, size_t i, const std::deque<double>& edgeTransition) const;
    void appendShapedLine(const std::vector<Pixel>& line, const std::vector<Pixel>* above,
                          const std::deque<double>& edgeTransition, size_t reach);
    void appendRowAbove();
    void appendShapedLineWithMovedBounds(const RowLayout& row, const RowLayout& rowAbove,
                                         const std::vector<Pixel>& line, const std::deque<double>& edgeTransition,
                                         size_t reach);
    bool shapingIsSilent(const std::deque<double>& edgeTransition) const;
    size_t shapingReach(const std::deque<double>& edgeTransition) const;

    Pixel renderOutsideCircle(int X, int Y);
    Pixel renderCentre(int X, int Y);
    Pixel renderGratings(int X);

    void buildLineTables();
    std::pair<int, int> columnsCloserThan(int64_t limitSquared) const;
    RowLayout rowLayout(int y);
    void fillLine(const RowLayout& row, std::vector<Pixel>& line);
    Band bandOfRow(int Y) const;
    Pixel bandPixel(Band band, int X, int Y);
    const std::vector<Pixel>& insideRow(int Y);
    const std::vector<Pixel>& outsideRow(int Y);

    std::unique_ptr<LineTables> lineTables;
};
