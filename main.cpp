// Renders one frame of the PM5544 test card as the command line asks.
#include "PatternRender.h"
#include "philips-PM5544-new.h"

int main(int argc, char** argv) {
    PhilipsPm5544Spec card;
    return PatternRender::renderPattern(argc, argv, card);
}
