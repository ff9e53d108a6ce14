// What text costs on its way to the clients: its conversion to UTF-8, and the publisher that batches it.
// Prints each figure with its goal, as the median of many rounds in time of the processor, so that other
// programs on the machine count little. Text that does not arrive whole ends the run.

#include "bench/goals.hpp"
#include "cppmicroservices/Framework.hpp"
#include "fl/i18n/codecvt_ustring_to_string.hpp"
#include "foundation/concurrent/threadpool/WorkerPool.hpp"
#include "foundation/cppmicroservices/framework.hpp"
#include "foundation/log/basic_diagnostic_logger.hpp"
#include "r24a0/TextJSBufferPublisher.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using bench::goal;
using bench::median;
using bench::processorTime;
using yvm::JSClient::JsonObject;
using yvm::JSClient::r24a0::TextJSBufferPublisher;

void expectSize(const char* what, std::size_t size, std::size_t expected) {
    if (size != expected) {
        std::fprintf(stderr, "%s: %zu instead of %zu\n", what, size, expected);
        std::exit(EXIT_FAILURE);
    }
}

/// MB/s of the shorter of the text's two forms: in ASCII the UTF-8, in most other text the 16-bit one.
double conversionRate(const std::u16string& text, std::size_t utf8Size) {
    std::vector<double> rates;
    for (int round = 0; round < 301; ++round) {
        const double begin = processorTime();
        fl::i18n::codecvt_ustring_to_string converter("UTF-8", true);
        const std::string utf8 = converter.convert(text);
        const double time = processorTime() - begin;
        expectSize("bytes of UTF-8", utf8.size(), utf8Size);
        rates.push_back(static_cast<double>(std::min(utf8.size(), 2 * text.size())) / time / 1e6);
    }
    return median(rates);
}

struct Mixture {
    std::u16string text;
    std::size_t utf8Size = 0;
};

/// Parts in random order, always the same one.
Mixture mixed(const std::vector<std::pair<std::u16string, std::size_t>>& parts) {
    constexpr std::size_t units = 1 << 16;
    std::mt19937 random(1);
    Mixture mixture;
    while (mixture.text.size() < units) {
        const auto& [part, utf8Size] = parts[random() % parts.size()];
        mixture.text += part;
        mixture.utf8Size += utf8Size;
    }
    return mixture;
}

void measureConversion() {
    std::printf("\n16-bit text to UTF-8, 64 Ki units at a time\n");
    const std::u16string ascii(1 << 16, u'x');
    const double asciiRate = conversionRate(ascii, ascii.size()) / 1e3;
    goal(asciiRate > 1, "ASCII", asciiRate, "GB/s of UTF-8", "more than 1");

    const Mixture words = mixed({{u"plain ", 6},
                                 {u"na\u00EFve ", 7},
                                 {u"\u0395\u03BB\u03BB\u03AC\u03B4\u03B1 ", 13},
                                 {u"\u05E9\u05DC\u05D5\u05DD ", 9},
                                 {u"e\u0301 ", 4},
                                 {u"\u6F22\u5B57 ", 7},
                                 {u"\U0001F600 ", 5}});
    const double wordRate = conversionRate(words.text, words.utf8Size);
    goal(wordRate > 300, "words of many scripts", wordRate, "MB/s", "more than 300");

    const Mixture characters = mixed({{u"a", 1}, {u"\u00E9", 2}, {u"\u6F22", 3}, {u"\U0001F600", 4}});
    const double characterRate = conversionRate(characters.text, characters.utf8Size);
    goal(characterRate > 300, "characters of random length", characterRate, "MB/s", "more than 300");
}

constexpr std::size_t fragments = 10'000'000;
constexpr std::size_t fragmentSize = 40;

/// Millions of fragments a second, each made, pushed, and sent with what piled up in the period of the timer,
/// or when so many have.
double publisherRate(std::size_t mostPending) {
    constexpr double period = 0.150;
    const std::u16string fragment(fragmentSize, u'x');
    std::size_t sent = 0;
    const auto publisher = std::make_shared<TextJSBufferPublisher>(
        [&sent](const JsonObject& message) { sent += message.at("text").as<std::string>().size(); });

    const double begin = processorTime();
    double nextSend = begin + period;
    std::size_t pending = 0;
    for (std::size_t i = 0; i < fragments; ++i) {
        publisher->push(ylutil::io::StreamTypeEnum::Output, fragment);
        ++pending;
        // Every 100 us or so: asking for the time costs more than a push.
        if (pending == mostPending || (i % 1024 == 0 && processorTime() >= nextSend)) {
            publisher->send();
            pending = 0;
            nextSend = processorTime() + period;
        }
    }
    publisher->send();
    const double time = processorTime() - begin;
    expectSize("characters sent", sent, fragments * fragmentSize);
    return static_cast<double>(fragments) / time / 1e6;
}

void measurePublisher() {
    std::printf("\n10 million fragments of 40 units through the publisher, on one core\n");
    // As in the server: the log is on, and takes what went wrong.
    foundation::log::setLoggingEnabled(true);
    const auto framework = std::make_shared<cppmicroservices::Framework>();
    framework->Start();
    framework->GetBundleContext().RegisterService<foundation::concurrent::threadpool::ThreadPool>(
        std::make_shared<foundation::concurrent::threadpool::WorkerPool>());
    foundation::cppmicroservices::setFramework(framework);

    const auto measure = [](const char* what, std::size_t mostPending) {
        std::vector<double> rates;
        for (int round = 0; round < 5; ++round) {
            rates.push_back(publisherRate(mostPending));
        }
        goal(median(rates) >= 5, what, median(rates), "million fragments a second", "at least 5");
    };
    // Some 60 MB of text at a time, for which most of the time goes to the kernel, for fresh memory.
    measure("sent every 150 ms", fragments);
    // As where writers are held back.
    measure("sent every 150 ms, or every Mi units", (1 << 20) / fragmentSize);
    foundation::cppmicroservices::setFramework(nullptr);
}

}  // namespace

int main() {
    measureConversion();
    measurePublisher();
    return 0;
}
