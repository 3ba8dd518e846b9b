// The C API's card handle, shared by the files that implement the API: what a handle holds, the guard
// every entry point runs its body in, and the card's preparation and rows.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "analysis/Picture.h"
#include "library/Card.h"
#include "pm5544/pm5544.h"

struct pm5544_card {
    pm5544::CardSettings settings;
    std::unique_ptr<PhilipsPm5544Spec> pattern;  // built for the settings; null after a change
    std::unique_ptr<pm5544::Card> card;
    int64_t shown = 0;  // the frame whose text the boxes show
    std::string error;
    pm5544_message_fn callback = nullptr;
    void* userData = nullptr;
    std::vector<uint16_t> row;    // one full-frame row
    int inCallback = 0;           // > 0 while the message callback runs: calls on the card are refused
    std::string callbackFault;    // what the callback threw, reported when the call ends
    bool settingsChanged = true;  // since the last frame rendered: no frame held is of the present settings
    // The card as analyses compare with it, and the text of its lower box then: kept until a setting
    // changes, for every frame that shows the same text.
    std::shared_ptr<const pm5544::analysis::Picture> reference;
    std::string referenceText;
};

namespace pm5544::handle {

inline pm5544_status fail(pm5544_card* card, pm5544_status status, const std::string& message) {
    card->error = message;
    return status;
}

// Runs a call's body, turning what it throws into a status and a message; a call from inside the
// card's message callback is refused, as the card is then in the middle of another call. The message
// of the last failing call stays until another call fails.
template <typename Body>
pm5544_status guarded(pm5544_card* card, Body&& body) {
    if (card == nullptr) return PM5544_ERROR_ARGUMENT;
    if (card->inCallback > 0)
        return fail(card, PM5544_ERROR_IN_CALLBACK,
                    "A card's message callback called one of the card's functions; only pm5544_last_error may be");
    try {
        const pm5544_status status = body();
        const std::string thrown = std::exchange(card->callbackFault, {});
        if (status == PM5544_OK && !thrown.empty())
            return fail(card, PM5544_ERROR_FAILED, "The message callback threw " + thrown);
        return status;
    } catch (const std::bad_alloc&) {
        return fail(card, PM5544_ERROR_MEMORY,
                    "Not enough memory to render " + std::to_string(card->settings.width) + "x" +
                        std::to_string(card->settings.height));
    } catch (const std::exception& error) {
        return fail(card, PM5544_ERROR_FAILED, error.what());
    } catch (...) {
        return fail(card, PM5544_ERROR_FAILED, "An exception that is no std::exception stopped the call");
    }
}

// Builds the card for the settings unless it is built.
pm5544_status prepare(pm5544_card* card);

// Shows frame `frame` of the prepared card and hands each row, top to bottom and rounded to the card's
// depth (full-frame samples, pattern/FrameRow.h), to take(y, row).
void forEachFrameRow(pm5544_card* card, int64_t frame, const std::function<void(int, const uint16_t*)>& take);

}  // namespace pm5544::handle
