#pragma once

#include "foundation/json/Value.hpp"
#include "foundation/yorlabdata/Array.hpp"
#include "foundation/yorlabdata/ArrayFactory.hpp"
#include "foundation/yorlabdata/ObjectFilter.hpp"
#include "foundation/yorlabjson/ToJsonMode.hpp"

#include <string_view>

/// Arrays as JSON, in two forms.
///
/// The long form is an object of three members; the order of its members does not matter:
///
///     {"ywtype": "float64", "ywsize": [2, 3], "ywdata": [1, 2, 3, 4, 5, "NaN"]}
///
///     ywtype              ywsize          ywdata
///     float64, float32    any shape       array of numbers, or of the strings "NaN", "Inf", "-Inf"
///     complex128/64       any shape       the same, twice as many: real and imaginary parts in turn
///     int8 ... uint64     any shape       array of integers, as numbers or as strings of decimal digits
///     bool                any shape       array of true and false
///     text                []              a string
///     list                [length]        array of values, each in either form
///     record              []              object of values, each in either form
///
/// Elements are in C order: the last index runs fastest. The empty shape [] is a scalar with one element.
/// ywsize may be left out for text, list and record.
///
/// The short form is a plain JSON value: a number is a finite float64 scalar, true and false a bool scalar, a
/// string a text, an array of numbers a one-dimensional finite float64 array, and null null. All else has the
/// long form only; null has the short form only.
namespace foundation::yorlabdata::json {

/// Reads either form from its JSON text, without building a tree, numbers straight into the array's memory.
/// White space around the value is skipped.
///
/// Throws std::runtime_error, which tells what was wrong and what is accepted: text that is no JSON, an
/// unknown `ywtype`, a missing, repeated or unknown key, an element of the wrong type or outside of its
/// range, a number of elements that is not the product of `ywsize`, lists and records nested deeper than 512.
Array string_to_yorlabdata(std::string_view text, const ArrayFactory& factory);

/// The same from a value that has been parsed. Throws as string_to_yorlabdata.
Array json_to_yorlabdata(const foundation::json::Value& value, const ArrayFactory& factory);

/// Writes the long form, or the short form where `mode` prefers it and the array has one. Numbers keep every
/// bit in the text that the Serializer makes, except that all NaN become "NaN"; 64-bit integers beyond +-2^53
/// become strings of digits, for readers whose numbers are doubles. Lone surrogates of a text become U+FFFD.
foundation::json::Value yorlabdata_to_json(const Array& array, yorlabjson::ToJsonMode mode,
                                           yorlabjson::NanType nanType = {}, ObjectFilter objectFilter = {});

}  // namespace foundation::yorlabdata::json
