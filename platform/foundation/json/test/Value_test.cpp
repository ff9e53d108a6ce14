#include "foundation/json/Value.hpp"

#include <boost/variant/get.hpp>
#include <gtest/gtest.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace foundation::json {
namespace {

static_assert(sizeof(Value) == 16);
static_assert(std::is_nothrow_move_constructible_v<Value>);
static_assert(std::is_nothrow_move_assignable_v<Value>);
static_assert(!std::constructible_from<Value, const int*>, "a pointer must not become a bool");
static_assert(!std::constructible_from<Value, void*>);
static_assert(!std::constructible_from<Value, std::nullptr_t>);
static_assert(!std::constructible_from<Value, char>, "a character is no number");

/// One value of each alternative, in their order.
std::vector<Value> oneOfEach() {
    return {Undefined(),      Null(),           true,   1.5,        2.5f,
            std::int64_t{-3}, std::uint64_t{4}, "text", Array{1.0}, Object{{"k", 1.0}}};
}

const std::vector<std::string> names = {"undefined", "null",   "boolean", "double", "float",
                                        "int64",     "uint64", "string",  "array",  "object"};

std::string conversionError(const auto& convert) {
    try {
        convert();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no error";
}

TEST(Value, DefaultIsUndefined) {
    EXPECT_TRUE(Value().is<Undefined>());
}

TEST(Value, AlternativesHaveTheirFixedOrderAndNames) {
    const std::vector<Value> values = oneOfEach();
    for (std::size_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(static_cast<std::size_t>(values[i].kind()), i);
        EXPECT_EQ(values[i].typeName(), names[i]);
    }
}

TEST(Value, LiteralsBecomeStringsAndPlainIntegersTheirSigned64) {
    EXPECT_EQ(Value("a").get<std::string>(), "a");
    EXPECT_EQ(Value(std::string_view("a")).get<std::string>(), "a");
    EXPECT_EQ(Value(0).get<std::int64_t>(), 0);
    EXPECT_EQ(Value(-1L).get<std::int64_t>(), -1);
    EXPECT_EQ(Value(std::size_t{7}).get<std::uint64_t>(), 7u);
    EXPECT_EQ(Value(false).get<bool>(), false);
}

TEST(Value, GetThrowsBadGetWithItsText) {
    try {
        Value("text").get<bool>();
        FAIL() << "converted";
    } catch (const boost::bad_get& error) {
        EXPECT_STREQ(error.what(), "boost::bad_get: failed value get using boost::get");
    }
    const Value constant = 1.0;
    EXPECT_THROW(constant.get<std::int64_t>(), boost::bad_get);
}

template <typename T>
void expectConversionErrorsTo(const std::string& wanted) {
    const std::vector<Value> values = oneOfEach();
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::string error = conversionError([&] { values[i].as<T>(); });
        EXPECT_EQ(error,
                  names[i] == wanted ? "no error" : "invalid conversion: " + names[i] + " to " + wanted);
    }
}

TEST(Value, AsNamesTheStoredAndTheRequestedAlternative) {
    expectConversionErrorsTo<std::string>("string");
    expectConversionErrorsTo<Array>("array");
    expectConversionErrorsTo<Object>("object");
    expectConversionErrorsTo<bool>("boolean");
    expectConversionErrorsTo<double>("double");
    expectConversionErrorsTo<Null>("null");
    expectConversionErrorsTo<float>("float");
    expectConversionErrorsTo<std::int64_t>("int64");
    expectConversionErrorsTo<std::uint64_t>("uint64");
    expectConversionErrorsTo<Undefined>("undefined");
}

TEST(Value, GetIfIsNullForAnotherAlternative) {
    Value value = 1.5;
    EXPECT_EQ(value.getIf<std::string>(), nullptr);
    ASSERT_NE(value.getIf<double>(), nullptr);
    *value.getIf<double>() = 2.5;
    EXPECT_EQ(value, Value(2.5));
}

TEST(Value, ContentsCanBeChangedInPlace) {
    Value value = Object{{"a", Array{}}};
    value.get<Object>()["a"].as<Array>().push_back("x");
    EXPECT_EQ(value, Value(Object{{"a", Array{"x"}}}));
}

TEST(Value, CopiesAreEqualAndIndependent) {
    for (const Value& value : oneOfEach()) {
        Value copy = value;
        EXPECT_EQ(copy, value);
        copy = Value("other");
        EXPECT_NE(copy, value);
    }
    Value original = Object{{"a", Array{1.0, Object{{"b", "c"}}}}};
    const Value copy = original;
    original.get<Object>()["a"].get<Array>().clear();
    EXPECT_EQ(copy, Value(Object{{"a", Array{1.0, Object{{"b", "c"}}}}}));
}

TEST(Value, MovedFromIsUndefined) {
    for (Value& value : std::vector<Value>(oneOfEach())) {
        const Value copy = value;
        const Value moved = std::move(value);
        EXPECT_EQ(moved, copy);
        EXPECT_TRUE(value.is<Undefined>());
    }
}

TEST(Value, AssignmentFromItsOwnDescendantKeepsIt) {
    Value value = Array{Array{"inner"}};
    value = std::move(value.get<Array>()[0]);
    EXPECT_EQ(value, Value(Array{"inner"}));
    value = Value(value.get<Array>()[0]);
    EXPECT_EQ(value, Value("inner"));
    Value& self = value;
    value = self;
    EXPECT_EQ(value, Value("inner"));
}

TEST(Value, EqualityNeedsTheSameAlternative) {
    EXPECT_NE(Value(1.0), Value(1));
    EXPECT_NE(Value(std::int64_t{1}), Value(std::uint64_t{1}));
    EXPECT_NE(Value(1.0), Value(1.0f));
    EXPECT_NE(Value(), Value(Null()));
    EXPECT_EQ(Value(1.0), Value(1.0));
    EXPECT_NE(Value(std::numeric_limits<double>::quiet_NaN()),
              Value(std::numeric_limits<double>::quiet_NaN()));
}

TEST(Value, ContainersDifferByLengthKeyOrContent) {
    EXPECT_NE(Value(Array{1.0}), Value(Array{1.0, 1.0}));
    EXPECT_NE(Value(Array{1.0}), Value(Array{2.0}));
    EXPECT_NE(Value(Object{{"a", 1.0}}), Value(Object{{"b", 1.0}}));
    EXPECT_NE(Value(Object{{"a", 1.0}}), Value(Object{{"a", 2.0}}));
    EXPECT_NE(Value(Object{{"a", 1.0}}), Value(Object{{"a", 1.0}, {"b", 1.0}}));
    EXPECT_NE(Value(Array{Array{1.0}, 2.0}), Value(Array{Array{3.0}, 2.0}));
}

Value nested(std::size_t depth) {
    Value value = 1.0;
    for (std::size_t i = 0; i < depth; ++i) {
        if (i % 2 == 0) {
            Array array;
            array.push_back(std::move(value));
            value = Value(std::move(array));
        } else {
            Object object;
            object.emplace("k", std::move(value));
            value = Value(std::move(object));
        }
    }
    return value;
}

TEST(Value, AMillionLevelsAreCopiedComparedAndDestroyed) {
    const Value value = nested(1000000);
    const Value copy = value;
    EXPECT_TRUE(copy == value);
    EXPECT_FALSE(copy == nested(999998));
}

}  // namespace
}  // namespace foundation::json
