#include "cmddistributor/CmdRequest.hpp"

#include "foundation/yorlabdata/ArrayFactory.hpp"
#include "ylutil/io/YLNoOutputStreamBuffer.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <stdexcept>

namespace cmddistributor {
namespace {

using foundation::yorlabdata::Array;
using foundation::yorlabdata::ArrayFactory;
using foundation::yorlabdata::Kind;

TEST(CmdRequestTest, AnEvalRequestCarriesItsTextAndItsSinks) {
    const auto sink = boost::make_shared<ylutil::io::YLSink>(
        boost::make_shared<ylutil::io::YLNoOutputStreamBuffer>(), ylutil::io::SinkTraits());
    const EvalCmdRequest request(true, -2, sink, nullptr, u"1+1", "a/Caller");

    const auto& iip = std::get<EvalIIP>(*request.getIIP());
    EXPECT_EQ(iip.command, u"1+1");
    EXPECT_TRUE(iip.isUserEval);
    EXPECT_EQ(request.getStreamID(), -2);
    EXPECT_EQ(request.getOutSink(), sink);
    EXPECT_FALSE(request.getErrSink());
    EXPECT_EQ(request.getSourceTag(), "a/Caller");
}

TEST(CmdRequestTest, AnFEvalRequestCarriesItsCall) {
    const FEvalCmdRequest request(
        FEvalIIP{"numpy.linalg.svd", {Array(std::u16string(u"x"))}, ~std::uint64_t{0}, true}, 0, nullptr,
        nullptr, "a/Caller");

    const auto& iip = std::get<FEvalIIP>(*request.getIIP());
    EXPECT_EQ(iip.function, "numpy.linalg.svd");
    EXPECT_EQ(iip.arguments, std::vector<Array>{Array(std::u16string(u"x"))});
    EXPECT_EQ(iip.numOutputs, ~std::uint64_t{0});
    EXPECT_TRUE(iip.flag);
}

TEST(ValidateInputTest, AcceptsEveryKindOfValue) {
    const ArrayFactory factory;
    EXPECT_NO_THROW(detail::validateInput({}));
    EXPECT_NO_THROW(detail::validateInput(
        {Array(), factory.createScalar(1.5), factory.createArray<double>({0, 3}, {}),
         Array(Kind::float64, {0}, nullptr), Array(foundation::yorlabdata::List{Array(), Array()}),
         Array(foundation::yorlabdata::Record{{"a", factory.createScalar(true)}})}));
}

void expectRefused(std::vector<Array> arguments, const std::string& text) {
    try {
        detail::validateInput(arguments);
        FAIL() << "accepted";
    } catch (const std::invalid_argument& error) {
        EXPECT_EQ(error.what(), text);
    }
}

TEST(ValidateInputTest, RefusesElementsWithoutMemoryAtAnyDepth) {
    const Array hollow(Kind::float64, {2, 3}, nullptr);
    const std::string text = " of the function holds an array without memory for its elements.";
    expectRefused({Array(), hollow}, "argument 2" + text);
    expectRefused({Array(foundation::yorlabdata::List{Array(foundation::yorlabdata::Record{{"a", hollow}})})},
                  "argument 1" + text);
}

}  // namespace
}  // namespace cmddistributor
