#include "yvm/makeTextEventBuffer.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "foundation/msg_svc/eventmgr/EventMgr.hpp"
#include "ylutil/io/TextBaseEvent.hpp"
#include "yvm/Factory.hpp"
#include "yvm/YVM.hpp"

#include <boost/make_shared.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

namespace yvm {
namespace {

using foundation::msg_svc::exchange::IDType;
using ylutil::io::StreamTypeEnum;

class TextEventBuffer final : public std::basic_streambuf<char16_t> {
  public:
    explicit TextEventBuffer(StreamTypeEnum streamType) : streamType_(streamType) {}

  protected:
    int_type overflow(int_type character) override {
        if (!traits_type::eq_int_type(character, traits_type::eof()) && character != 0) {
            const char16_t unit = traits_type::to_char_type(character);
            write(&unit, 1);
        }
        return character;
    }

    std::streamsize xsputn(const char16_t* text, std::streamsize count) override {
        write(text, static_cast<std::size_t>(count));
        return count;
    }

    int sync() override {
        try {
            return fire();
        } catch (...) {
            return -1;
        }
    }

  private:
    static constexpr std::size_t threshold = 8192;

    void write(const char16_t* text, std::size_t count) {
        const IDType id = cmddistributor::RequestIdAdapter().getRequestId();
        if (id != lastRequestId_) {
            sync();
            lastRequestId_ = id;
        }
        text_.append(text, count);
        if (text_.size() > threshold) {
            sync();
        }
    }

    int fire() {
        if (text_.empty()) {
            return 0;
        }
        const std::shared_ptr<YVM> engine = Factory::getCurrentLocalYVM();
        const auto eventMgr = engine ? engine->getEventMgr() : nullptr;
        if (!eventMgr) {
            return -1;
        }
        // Emptied first: a handler that prints writes into this buffer.
        std::u16string text = std::exchange(text_, {});
        eventMgr->deliver(
            std::make_shared<ylutil::io::TextBaseEvent>(lastRequestId_, streamType_, std::move(text)),
            foundation::msg_svc::eventmgr::DeliveryMode::synchronous);
        return 0;
    }

    const StreamTypeEnum streamType_;
    std::u16string text_;
    IDType lastRequestId_ = IDType::null();
};

}  // namespace

boost::shared_ptr<std::basic_streambuf<char16_t>> makeTextEventBuffer(StreamTypeEnum streamType) {
    return boost::make_shared<TextEventBuffer>(streamType);
}

}  // namespace yvm
