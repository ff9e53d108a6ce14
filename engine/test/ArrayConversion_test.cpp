#include "engine/test/EngineFixture.hpp"

#include <boost/thread/thread.hpp>

#include <complex>
#include <thread>

namespace yvm::engine::test {
namespace {

using foundation::yorlabdata::ArrayFactory;
using foundation::yorlabdata::Kind;
using foundation::yorlabdata::List;
using foundation::yorlabdata::nameOf;
using foundation::yorlabdata::Record;
using foundation::yorlabdata::Shape;

/// The value of an expression, as a client gets it.
Array valueOf(const std::string& expression) {
    EngineTest::eval("import numpy as np\ndef value(): return " + expression);
    return EngineTest::feval("value");
}

/// Why a client does not get the value of an expression.
std::string refusal(const std::string& expression) {
    EngineTest::eval("import numpy as np\ndef value(): return " + expression);
    const auto error = EngineTest::submitFeval("value", {}).error();
    EXPECT_EQ(error.GetID(), "TypeError") << expression;
    return error.what();
}

/// What Python says of an array that comes in.
std::string seenByPython(const Array& array, const std::string& expression) {
    EngineTest::eval("def see(a): return str(" + expression + ")");
    return utf8(EngineTest::feval("see", {array}));
}

TEST_F(EngineTest, PythonScalarsBecomeScalars) {
    EXPECT_EQ(valueOf("None").kind(), Kind::null);
    EXPECT_EQ(valueOf("True"), scalar(true));
    EXPECT_EQ(valueOf("2.5"), scalar(2.5));
    EXPECT_EQ(valueOf("-7"), scalar<std::int64_t>(-7));
    EXPECT_EQ(valueOf("2**63 - 1"), scalar<std::int64_t>(INT64_MAX));
    EXPECT_EQ(valueOf("-2**63"), scalar<std::int64_t>(INT64_MIN));
    EXPECT_EQ(valueOf("2**64 - 1"), scalar<std::uint64_t>(UINT64_MAX));
    EXPECT_EQ(valueOf("1+2j"), scalar(std::complex<double>(1, 2)));
    EXPECT_EQ(valueOf("'\U0001F600'"), text("\U0001F600"));
}

TEST_F(EngineTest, AnIntBeyond64BitsIsRefused) {
    const std::string expected =
        "an int that needs more than 64 bits cannot be handed to a client: -2**63 to 2**64-1 are accepted";
    EXPECT_EQ(refusal("2**64"), expected);
    EXPECT_EQ(refusal("-2**63 - 1"), expected);
}

TEST_F(EngineTest, LoneSurrogatesPassBothWays) {
    const Array lone = Array(std::u16string{u'a', char16_t(0xDE00)});
    EXPECT_EQ(valueOf("'a\\ude00'"), lone);
    EXPECT_EQ(seenByPython(lone, "a == 'a\\ude00'"), "True");
}

TEST_F(EngineTest, ListsTuplesAndDictsBecomeListsAndRecords) {
    const Array list = valueOf("[1, (2.5, 'x'), {'k': None, 'b': [True]}]");
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list.list()[1].list()[1], text("x"));
    const Record& record = list.list()[2].record();
    ASSERT_EQ(record.size(), 2U);
    EXPECT_EQ(record[0].first, "k");
    EXPECT_EQ(record[1].second.list()[0], scalar(true));
    EXPECT_EQ(seenByPython(list, "a"), "[1, [2.5, 'x'], {'k': None, 'b': [True]}]");
}

TEST_F(EngineTest, WhatNoKindCanHoldIsRefusedWithWhatIsAccepted) {
    EXPECT_EQ(
        refusal("object()"),
        "a value of type object cannot be handed to a client: None, bool, int, float, complex, str, list, "
        "tuple, dict and NumPy arrays and scalars are accepted");
    EXPECT_EQ(refusal("{1: 2}"),
              "a dict with a key of type int cannot be handed to a client: keys of type str are accepted");
    const std::string accepted =
        " cannot be handed to a client: float16, float32, float64, int8 to int64, uint8 to uint64, bool, "
        "complex64 "
        "and complex128 are accepted";
    EXPECT_EQ(refusal("np.array([object()])"), "a NumPy array of dtype object" + accepted);
    EXPECT_EQ(refusal("np.array(['2020-01-01'], dtype='datetime64[D]')"),
              "a NumPy array of dtype datetime64[D]" + accepted);
    EXPECT_EQ(refusal("np.zeros(2, 'longdouble')"), "a NumPy array of dtype float128" + accepted);
    EXPECT_EQ(refusal("np.zeros(2, 'clongdouble')"), "a NumPy array of dtype complex256" + accepted);
    EXPECT_EQ(refusal("np.array(['a'])"), "a NumPy array of dtype <U1" + accepted);
    EXPECT_EQ(refusal("np.ma.masked_array([1, 2], [0, 1])"),
              "a masked array cannot be handed to a client, since its mask would be lost: fill it first");
}

TEST_F(EngineTest, AValueWithinItselfIsRefused) {
    eval("ring = []\nring.append(ring)");
    EXPECT_EQ(
        refusal("ring"),
        "a value nested more than 200 levels deep, perhaps within itself, cannot be handed to a client");
}

TEST_F(EngineTest, EveryDtypeKeepsItsKindBothWays) {
    const std::vector<std::pair<std::string, Kind>> kinds{
        {"float64", Kind::float64},    {"float32", Kind::float32}, {"int8", Kind::int8},
        {"int16", Kind::int16},        {"int32", Kind::int32},     {"int64", Kind::int64},
        {"uint8", Kind::uint8},        {"uint16", Kind::uint16},   {"uint32", Kind::uint32},
        {"uint64", Kind::uint64},      {"bool", Kind::boolean},    {"complex128", Kind::complex128},
        {"complex64", Kind::complex64}};
    for (const auto& [name, kind] : kinds) {
        const Array array = valueOf("np.array([[0, 1, 1], [1, 0, 1]], '" + name + "')");
        EXPECT_EQ(array.kind(), kind) << name;
        EXPECT_EQ(array.shape(), (Shape{2, 3})) << name;
        EXPECT_EQ(seenByPython(array, "(a.dtype.name, a.tolist() == [[0, 1, 1], [1, 0, 1]])"),
                  "('" + name + "', True)");
        const Array one = valueOf("np.array(1, '" + name + "')[()]");
        EXPECT_EQ(one.kind(), kind) << name;
        EXPECT_EQ(one.shape(), Shape{}) << name;
        EXPECT_EQ(seenByPython(one, "np.asarray(a).dtype.name == '" + name + "' and a == 1"), "True") << name;
    }
}

TEST_F(EngineTest, AFloat16GoesOutAsFloat32) {
    const Array array = valueOf("np.array([0.5, 65504], 'float16')");
    EXPECT_EQ(array.kind(), Kind::float32);
    EXPECT_EQ(array.data<float>()[1], 65504.0F);
}

TEST_F(EngineTest, AZeroDimensionalArrayIsAScalar) {
    EXPECT_EQ(valueOf("np.array(2.5)"), scalar(2.5));
}

TEST_F(EngineTest, AnArrayWithoutElementsKeepsItsShape) {
    EXPECT_EQ(valueOf("np.zeros((0, 3))").shape(), (Shape{0, 3}));
    EXPECT_EQ(seenByPython(ArrayFactory().createArray<double>({2, 0}, {}), "a.shape"), "(2, 0)");
}

TEST_F(EngineTest, AContiguousArrayIsSharedAndNotCopied) {
    eval(
        "import numpy as np\nlent = np.arange(6.0).reshape(2, 3)\n"
        "def lend(): return lent\ndef where(): return lent.ctypes.data");
    const Array array = feval("lend");
    EXPECT_EQ(reinterpret_cast<std::int64_t>(array.data()), *feval("where").data<std::int64_t>());
    EXPECT_EQ(array.data<double>()[5], 5.0);
}

TEST_F(EngineTest, AnArrayThatComesInIsNotCopied) {
    const Array array = ArrayFactory().createArray<double>({3}, std::vector<double>{1, 2, 3});
    EXPECT_EQ(seenByPython(array, "a.ctypes.data == " +
                                      std::to_string(reinterpret_cast<std::uintptr_t>(array.data()))),
              "True");
}

TEST_F(EngineTest, StridedUnalignedAndSwappedArraysAreCopied) {
    EXPECT_EQ(valueOf("np.arange(6.0).reshape(2, 3).T"),
              ArrayFactory().createArray<double>({3, 2}, std::vector<double>{0, 3, 1, 4, 2, 5}));
    EXPECT_EQ(valueOf("np.arange(10)[::-3]"),
              ArrayFactory().createArray<std::int64_t>({4}, std::vector<std::int64_t>{9, 6, 3, 0}));
    EXPECT_EQ(valueOf("np.array([1, 258], '>i2')"),
              ArrayFactory().createArray<std::int16_t>({2}, std::vector<std::int16_t>{1, 258}));
    EXPECT_EQ(valueOf("np.frombuffer(b'\\0' + np.arange(2.0).tobytes(), dtype='f8', offset=1)"),
              ArrayFactory().createArray<double>({2}, std::vector<double>{0, 1}));
}

TEST_F(EngineTest, OnlyAnArrayThatNobodyElseHoldsMayBeWrittenTo) {
    eval(
        "def fill(a):\n    try:\n        a[:] = 7\n    except ValueError as error:\n        return "
        "str(error)\n"
        "    return 'filled'");
    Arrays arguments;
    arguments.push_back(ArrayFactory().createArray<double>({2}, std::vector<double>{1, 2}));
    EXPECT_EQ(utf8(submitFeval("fill", std::move(arguments)).get().at(0)), "filled");
    const Array kept = ArrayFactory().createArray<double>({2}, std::vector<double>{1, 2});
    EXPECT_EQ(utf8(feval("fill", {kept})), "assignment destination is read-only");
    EXPECT_EQ(kept.data<double>()[0], 1.0);
}

TEST_F(EngineTest, MemoryOfPythonIsReleasedWhenTheLastOwnerDiesOnAnyThread) {
    eval(
        "import numpy as np, weakref\n"
        "class Watched(np.ndarray): pass\n"
        "def make():\n    global watch\n    array = np.zeros(3).view(Watched)\n    watch = "
        "weakref.ref(array.base)\n"
        "    return array\n"
        "def is_alive(): return watch() is not None");
    Array array = feval("make");
    EXPECT_EQ(feval("is_alive"), scalar(true));
    std::thread([moved = std::move(array)] {}).join();
    // The release was queued before this command was.
    EXPECT_EQ(feval("is_alive"), scalar(false));
}

TEST_F(EngineTest, ARecordKeyOfAnyTextComesIn) {
    EXPECT_EQ(seenByPython(Array(Record{{"k\xC3\xA4", scalar(1.0)}, {"", Array()}}), "a"),
              "{'k\u00e4': 1.0, '': None}");
}

TEST_F(EngineTest, TheFailureOfOneOutputNamesWhatIsAccepted) {
    eval("def mixed(): return 1, object()");
    EXPECT_EQ(submitFeval("mixed", {}, 1).error().GetID(), "TypeError");
    EXPECT_EQ(submitFeval("mixed", {}, 0).get().size(), 0U);
}

TEST_F(EngineTest, AContainerThatChangesWhileItIsConvertedIsNotReadBeyondItsLife) {
    eval(
        "class Emptying(int):\n"
        "    @property\n    def dtype(self):\n        held.clear()\n        raise AttributeError\n"
        "def mapping():\n    global held\n    held = {'a': Emptying(5), 'b': 6}\n    return held\n"
        "def sequence():\n    global held\n    held = [Emptying(5)]\n    return held");
    const auto mapping = feval("mapping");
    ASSERT_EQ(mapping.record().size(), 2U);
    EXPECT_EQ(*mapping.record()[0].second.data<std::int64_t>(), 5);
    EXPECT_EQ(*mapping.record()[1].second.data<std::int64_t>(), 6);
    const auto sequence = feval("sequence");
    ASSERT_EQ(sequence.list().size(), 1U);
    EXPECT_EQ(*sequence.list()[0].data<std::int64_t>(), 5);
}

}  // namespace
}  // namespace yvm::engine::test
