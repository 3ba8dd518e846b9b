// The PM5544 test card: palette per encoding, layout in 576ths of the height, edges shaped by the
// card itself, optional text in its two black boxes, and a per-pixel look-up for the rendering loops
// that keeps only a few rows.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "colour/Pixel.h"
#include "pattern/PatternWrapper.h"

class PhilipsPm5544Spec final : public PatternSpec {
public:
    PhilipsPm5544Spec();
    ~PhilipsPm5544Spec();

    // Chooses the palette and derives the size-dependent parameters; rows are shaped on demand.
    void setup() override;
    // The finished pixel: the row is shaped when asked for first (bounds-checked like an index
    // into the whole frame).
    Pixel body(int x, int y) override;
    const Pixel* bodyRow(int y, int x0, int x1, std::vector<Pixel>& scratch) override;
    bool useFullCanvasSize() override;
    // The identification in the black box at the top of the circle, the caption or clock in the black
    // bar below the grey scale. Before or after init; without text nothing is drawn or allocated.
    void setBoxTexts(const std::string& family, const std::string& upper, const std::string& lower);
    // Replaces the lower box's text, for a clock that moves on from frame to frame. Returns the frame
    // rows first .. end - 1 outside which nothing changed (whole 4:2:0 row pairs); empty when the text
    // is the same. Only the new text is drawn.
    std::pair<int, int> setLowerText(const std::string& lower);

    // The card's pixel at canvas position (x, y), with hard edges.
    Pixel render(int x, int y);

    // Palette, set by setup() for the output encoding.
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

private:
    friend struct CardTestAccess;  // tests reach the rows through it (tests/support/CardTestAccess.h)

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
    static constexpr int bandCount = static_cast<int>(Band::BottomCap) + 1;

    // All insidePixel() reads of a row inside the circle: its band, whether the centre strip cuts
    // into it and whether the centre cross runs along it.
    struct InsideKind {
        Band band;
        bool strip;
        bool cross;
    };
    // All outsidePixel() depends on of a row: whether it crosses the field, and whether it lies on
    // a horizontal line of the field's grid and of the border's pattern.
    struct OutsideKind {
        bool field;
        bool gridLine;
        bool borderLine;
    };
    using GridDrawing = bool (PhilipsPm5544Spec::*)(int X, int Y, Pixel& result);

    // The shaped rows body() serves, built from row kinds.
    class Rows;
    // Text blended into one of the black boxes.
    class TextBox;
    enum TextBoxPlace { UpperBox, LowerBox, textBoxCount };

    // Layout unit: k/576 of the picture height.
    int h(int k) const { return heightFraction(k, 576); }
    int gridPitch() const { return heightFraction(79, 1080); }
    // The black identification box: columns X from idBoxLeft(), idBoxWidth wide.
    int idBoxLeft() const { return 1 - h(84); }
    // The bars with a pulse: columns X from pulseBarLeft(), pulseBarWidth wide, with a line of the
    // other colour over the three columns about pulseLineCentre().
    int pulseBarLeft() const { return -h(126); }
    int pulseLineCentre() const { return h(21) - h(126); }

    void choosePalette();
    void deriveParameters();

    // The layout, in coordinates about the centre. render() reads it pixel by pixel, Rows row
    // kind by row kind.
    bool withinRadius(int X, int Y, int radius) const;
    int innerRadius() const { return h(252); }
    int outlineRadius() const { return h(254); }
    Band bandOfRow(int Y) const;
    InsideKind insideKind(int Y) const;
    Pixel insidePixel(InsideKind kind, int X);
    Pixel bandPixel(Band band, bool crossRow, int X);
    Pixel centrePixel(bool crossRow, int X);
    Pixel gratingPixel(int X);
    bool inFieldRows(int Y) const;
    OutsideKind outsideKind(int Y);
    Pixel outsidePixel(int X, int Y);
    bool drawFieldGrid(int X, int Y, Pixel& result);
    bool drawBorder(int X, int Y, Pixel& result);
    std::optional<int> clearColumn(GridDrawing draw, int pitch);
    bool onHorizontalLine(GridDrawing draw, const std::optional<int>& clear, int Y);

    // Columns clear of the vertical lines of the field's grid and of the border's pattern.
    std::optional<int> fieldGridClear;
    std::optional<int> borderClear;
    std::unique_ptr<Rows> rows;

    // Canvas columns left .. left + width - 1 and rows top .. top + height - 1 of a box's black.
    struct TextArea {
        int left, top, width, height;
    };
    void drawTextBoxes();
    std::pair<int, int> drawTextBox(TextBoxPlace place);
    void loadFont();
    TextArea textArea(TextBoxPlace place) const;
    std::pair<int, int> bandRows(Band band) const;
    double pixelAspect() const;

    std::string fontFamily;
    std::string boxTexts[textBoxCount];
    std::unique_ptr<TextBox> textBoxes[textBoxCount];  // null while a box has no text
};
