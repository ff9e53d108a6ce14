#include "foundation/yorlabdata/Array.hpp"

#include "foundation/yorlabdata/ArrayFactory.hpp"

#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace foundation::yorlabdata {
namespace {

const ArrayFactory factory;

TEST(Array, DefaultIsNull) {
    const Array array;
    EXPECT_EQ(array.kind(), Kind::null);
    EXPECT_EQ(array.size(), 0u);
    EXPECT_EQ(array.data(), nullptr);
    EXPECT_EQ(array.buffer(), nullptr);
}

TEST(Array, ScalarHasAnEmptyShapeAndOneElement) {
    const Array array = factory.createScalar(2.5);
    EXPECT_EQ(array.kind(), Kind::float64);
    EXPECT_EQ(array.shape(), Shape{});
    EXPECT_EQ(array.size(), 1u);
    EXPECT_EQ(*array.data<double>(), 2.5);
}

TEST(Array, ShapeWithAZeroHasNoElements) {
    const Array array = factory.createArray<std::int32_t>({3, 0, 2}, {});
    EXPECT_EQ(array.shape(), (Shape{3, 0, 2}));
    EXPECT_EQ(array.size(), 0u);
}

TEST(Array, FactoryRefusesAnotherNumberOfElementsThanTheShapes) {
    const double elements[] = {1, 2, 3};
    try {
        factory.createArray<double>({2, 2}, elements);
        FAIL() << "made";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "the shape asks for 4 elements, not 3");
    }
}

TEST(Array, NumericConstructorRefusesOtherKinds) {
    try {
        Array(Kind::text, {}, nullptr);
        FAIL() << "made";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "the kind text is not numeric");
    }
}

TEST(Array, SharesForeignMemoryAndReleasesItWithTheLastOwnerOnAnyThread) {
    const double elements[] = {1, 2};
    std::thread::id releasedOn;
    std::thread::id worker;
    Array array(Kind::float64, {2}, std::shared_ptr<const void>(elements, [&](const void*) {
                    releasedOn = std::this_thread::get_id();
                }));
    EXPECT_EQ(array.data(), elements) << "no copy";
    Array copy = array;
    array = Array();
    EXPECT_EQ(releasedOn, std::thread::id());
    std::thread thread([&worker, last = std::move(copy)]() mutable {
        worker = std::this_thread::get_id();
        last = Array();
    });
    copy = Array();
    thread.join();
    EXPECT_EQ(releasedOn, worker);
}

TEST(Array, TextCountsSixteenBitUnits) {
    const Array array(std::u16string(u"a\U0001F600"));
    EXPECT_EQ(array.kind(), Kind::text);
    EXPECT_EQ(array.size(), 3u);
    EXPECT_EQ(array.shape(), Shape{});
}

TEST(Array, ListHasItsLengthAsShape) {
    const Array array(List{Array(), factory.createScalar(true)});
    EXPECT_EQ(array.kind(), Kind::list);
    EXPECT_EQ(array.shape(), Shape{2});
}

TEST(Array, RecordKeepsTheOrderGiven) {
    const Array array(Record{{"z", Array()}, {"a", Array()}});
    EXPECT_EQ(array.size(), 2u);
    EXPECT_EQ(array.record()[0].first, "z");
}

TEST(Array, ContentOfAnotherKindIsRefusedByName) {
    const Array number = factory.createScalar(1.0);
    EXPECT_THROW(number.text(), std::runtime_error);
    EXPECT_THROW(number.list(), std::runtime_error);
    try {
        number.record();
        FAIL() << "read";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "the array is of kind float64, not record");
    }
}

TEST(Array, EqualityComparesKindShapeAndBits) {
    const double elements[] = {1, 2};
    const Array array = factory.createArray<double>({2}, elements);
    EXPECT_EQ(array, factory.createArray<double>({2}, elements));
    EXPECT_NE(array, factory.createArray<double>({1, 2}, elements));
    EXPECT_NE(factory.createScalar(0.0), factory.createScalar(-0.0));
    EXPECT_NE(factory.createScalar(1.0), factory.createScalar(1.0f));
    EXPECT_EQ(Array(), Array());
    EXPECT_NE(Array(List{array}), Array(List{Array()}));
    EXPECT_NE(Array(Record{{"a", Array()}}), Array(Record{{"b", Array()}}));
    EXPECT_EQ(Array(std::u16string(u"x")), Array(std::u16string(u"x")));
}

TEST(Kinds, NamesReadBackToTheirKindsAndNullHasNone) {
    for (int i = 1; i <= static_cast<int>(Kind::record); ++i) {
        const Kind kind = static_cast<Kind>(i);
        EXPECT_EQ(kindNamed(nameOf(kind)), kind) << nameOf(kind);
    }
    EXPECT_EQ(kindNamed("null"), std::nullopt);
    EXPECT_EQ(kindNamed("FLOAT64"), std::nullopt);
}

template <typename T>
void expectElementSize() {
    EXPECT_EQ(elementSize(kindOf<T>), sizeof(T)) << nameOf(kindOf<T>);
}

TEST(Kinds, ElementSizesAreThoseOfTheTypes) {
    expectElementSize<double>();
    expectElementSize<float>();
    expectElementSize<std::int8_t>();
    expectElementSize<std::int16_t>();
    expectElementSize<std::int32_t>();
    expectElementSize<std::int64_t>();
    expectElementSize<std::uint8_t>();
    expectElementSize<std::uint16_t>();
    expectElementSize<std::uint32_t>();
    expectElementSize<std::uint64_t>();
    expectElementSize<bool>();
    expectElementSize<std::complex<double>>();
    expectElementSize<std::complex<float>>();
}

}  // namespace
}  // namespace foundation::yorlabdata
