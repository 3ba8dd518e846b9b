// A C++ wrapper over the C API (pm5544.h): the handle freed by its owner, errors thrown as
// pm5544::Error with the handle's message, settings chained. A message handler may throw: the exception
// is held while the library finishes the call (none crosses the C API) and rethrown when it returns.
// C++11 or later.
//
//     pm5544::TestCard card;
//     card.raster(3840, 2160).encoding("HLG").layout(PM5544_LAYOUT_I422_10).clock(true);
//     card.render(0, PM5544_LAYOUT_I422_10, planes, strides);
#ifndef PM5544_PM5544_HPP
#define PM5544_PM5544_HPP

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "pm5544/pm5544.h"

namespace pm5544 {

class Error : public std::runtime_error {
public:
    Error(pm5544_status status, const std::string& message) : std::runtime_error(message), status_(status) {}
    pm5544_status status() const { return status_; }

private:
    pm5544_status status_;
};

class TestCard {
public:
    using MessageHandler = std::function<void(pm5544_message_kind kind, const char* line)>;

    TestCard() : card_(pm5544_card_new(), pm5544_card_free), handler_(new Handler()) {
        if (!card_) throw std::bad_alloc();
    }

    TestCard& raster(int width, int height) { return check(pm5544_set_raster(get(), width, height)); }
    TestCard& aspect(int numerator, int denominator) { return check(pm5544_set_aspect(get(), numerator, denominator)); }
    TestCard& encoding(pm5544_encoding encoding) { return check(pm5544_set_encoding(get(), encoding)); }
    TestCard& encoding(const std::string& name) { return check(pm5544_set_encoding_name(get(), name.c_str())); }
    TestCard& bits(int bits) { return check(pm5544_set_bits(get(), bits)); }
    TestCard& sampling(int sampling) { return check(pm5544_set_sampling(get(), sampling)); }
    TestCard& layout(pm5544_layout layout) { return check(pm5544_use_layout(get(), layout)); }
    TestCard& edgeTaper(bool enabled) { return check(pm5544_set_edge_taper(get(), enabled)); }
    TestCard& ident(const std::string& text) { return check(pm5544_set_ident(get(), text.c_str())); }
    TestCard& caption(const std::string& text) { return check(pm5544_set_caption(get(), text.c_str())); }
    TestCard& clock(bool enabled) { return check(pm5544_set_clock(get(), enabled)); }
    TestCard& timecode(const std::string& timecode) { return check(pm5544_set_timecode(get(), timecode.c_str())); }
    TestCard& font(const std::string& name) { return check(pm5544_set_font(get(), name.c_str())); }
    TestCard& scan(pm5544_scan scan) { return check(pm5544_set_scan(get(), scan)); }
    TestCard& frameRate(int numerator, int denominator) {
        return check(pm5544_set_frame_rate(get(), numerator, denominator));
    }
    // Called on the rendering thread with each line; an empty handler drops them. It must not call the
    // card (such calls are refused); what it throws first reaches the caller of the call that ran it.
    TestCard& onMessage(MessageHandler handler) {
        handler_->function = std::move(handler);
        return check(
            pm5544_set_message_callback(get(), handler_->function ? &TestCard::forward : nullptr, handler_.get()));
    }

    void prepare() { check(pm5544_prepare(get())); }
    void render(int64_t frame, pm5544_layout layout, void* const planes[], const size_t strides[]) {
        check(pm5544_render_frame(get(), frame, layout, planes, strides));
    }
    // Brings planes holding frame `held` to frame `frame`; the rows written.
    pm5544_rows update(int64_t frame, int64_t held, pm5544_layout layout, void* const planes[],
                       const size_t strides[]) {
        pm5544_rows written{};
        check(pm5544_update_frame(get(), frame, held, layout, planes, strides, &written));
        return written;
    }
    pm5544_rows changedRows(int64_t from, int64_t to) {
        pm5544_rows rows{};
        check(pm5544_changed_rows(get(), from, to, &rows));
        return rows;
    }

    pm5544_card* get() const { return card_.get(); }

private:
    struct Handler {
        MessageHandler function;
        std::exception_ptr thrown;  // the first exception of the call running, rethrown when it returns
    };

    TestCard& check(pm5544_status status) {
        if (handler_->thrown) {
            std::exception_ptr thrown = nullptr;
            std::swap(thrown, handler_->thrown);
            std::rethrow_exception(thrown);
        }
        if (status != PM5544_OK) throw Error(status, pm5544_last_error(get()));
        return *this;
    }
    // Nothing may unwind through the C API: the exception waits for check().
    static void forward(void* user, pm5544_message_kind kind, const char* line) noexcept {
        Handler& handler = *static_cast<Handler*>(user);
        try {
            handler.function(kind, line);
        } catch (...) {
            if (!handler.thrown) handler.thrown = std::current_exception();
        }
    }

    std::unique_ptr<pm5544_card, void (*)(pm5544_card*)> card_;
    std::unique_ptr<Handler> handler_;  // at a fixed address the C API holds
};

}  // namespace pm5544

#endif
