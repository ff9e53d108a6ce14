import { describe, expect, it } from "vitest";

import { decodeYda, encodeYda, ndarray, type YdaInput, type YdaValue } from "../src/common/yda.js";

function long(ywtype: string, ywsize: number[], ywdata: unknown) {
    return { ywtype, ywsize, ywdata };
}

describe("decodeYda", () => {
    it.each<[string, unknown, YdaValue]>([
        ["None", null, null],
        ["a number", 1.5, 1.5],
        ["a boolean", true, true],
        ["text", "grüße", "grüße"],
        ["text in long form", long("text", [], "abc"), "abc"],
        ["an array of numbers", [1, 2.5], { kind: "float64", shape: [2], data: Float64Array.of(1, 2.5) }],
        ["an empty array", [], { kind: "float64", shape: [0], data: new Float64Array() }],
        ["a scalar that is not finite", long("float64", [], ["-Inf"]), -Infinity],
        ["a float32 scalar", long("float32", [], [0.5]), 0.5],
        ["an int32 scalar", long("int32", [], [-7]), -7],
        ["an int64 scalar", long("int64", [], [7]), 7n],
        ["an int64 scalar beyond 2^53", long("int64", [], ["-9223372036854775808"]), -(2n ** 63n)],
        ["a uint64 scalar", long("uint64", [], ["18446744073709551615"]), 2n ** 64n - 1n],
        ["a bool scalar in long form", long("bool", [], [false]), false],
        [
            "a bool array",
            long("bool", [3], [true, false, true]),
            { kind: "bool", shape: [3], data: Uint8Array.of(1, 0, 1) },
        ],
        [
            "a matrix",
            long("float64", [2, 2], [1, "NaN", "Inf", -0]),
            { kind: "float64", shape: [2, 2], data: Float64Array.of(1, NaN, Infinity, -0) },
        ],
        [
            "an array without elements that keeps its shape",
            long("uint8", [0, 3], []),
            { kind: "uint8", shape: [0, 3], data: new Uint8Array() },
        ],
        [
            "a complex scalar",
            long("complex128", [], [1, -2]),
            { kind: "complex128", shape: [], data: Float64Array.of(1, -2) },
        ],
        [
            "a complex64 array",
            long("complex64", [2], [1, 2, 3, "NaN"]),
            { kind: "complex64", shape: [2], data: Float32Array.of(1, 2, 3, NaN) },
        ],
        ["an empty list", long("list", [0], []), []],
        ["a nested list", long("list", [2], [1, long("list", [1], ["x"])]), [1, ["x"]]],
        [
            "a record",
            long("record", [], { a: 1, b: [2], __proto__x: null }),
            { a: 1, b: { kind: "float64", shape: [1], data: Float64Array.of(2) }, __proto__x: null },
        ],
    ])("reads %s", (_name, json, value) => {
        expect(decodeYda(json)).toEqual(value);
    });

    it.each<[unknown, string]>([
        [undefined, "An array should be an object, but is undefined"],
        [{}, "ywtype should be a string, but is undefined"],
        [
            long("decimal", [], [1]),
            'An array is of the unknown kind "decimal"; known are float64, float32, int8, int16, int32, int64, uint8, uint16, uint32, uint64, bool, complex128, complex64, text, list and record',
        ],
        [long("float64", [2], [1]), "1 values don't fill an array of kind float64 and shape [2]"],
        [long("complex128", [2], [1, 2]), "2 values don't fill an array of kind complex128 and shape [2]"],
        [long("float64", [-1], []), "ywsize should hold extents of 0 and more, but holds -1"],
        [
            long("float64", [1], ["x"]),
            'An element of an array should be a number, or one of the strings NaN, Inf and -Inf, but is "x"',
        ],
        [
            long("int64", [1], [1.5]),
            "An element of an array should be an integer or a string of digits, but is 1.5",
        ],
        [long("bool", [1], [1]), "An element of an array should be a boolean, but is 1"],
        [long("list", [0], {}), "ywdata of a list should be an array, but is object"],
    ])("refuses what is in neither form (%#)", (json, message) => {
        expect(() => decodeYda(json)).toThrow(message);
    });
});

describe("encodeYda", () => {
    it.each<[YdaInput, string]>([
        [null, "null"],
        [true, "true"],
        [0.1, "0.1"],
        [-0, "-0.0"],
        [1e300, "1e+300"],
        [NaN, '{"ywtype":"float64","ywsize":[],"ywdata":["NaN"]}'],
        [-Infinity, '{"ywtype":"float64","ywsize":[],"ywdata":["-Inf"]}'],
        ['say "hi"', '"say \\"hi\\""'],
        [5n, '{"ywtype":"int64","ywsize":[],"ywdata":[5]}'],
        [-(2n ** 63n), '{"ywtype":"int64","ywsize":[],"ywdata":["-9223372036854775808"]}'],
        [2n ** 63n, '{"ywtype":"uint64","ywsize":[],"ywdata":["9223372036854775808"]}'],
        [Int16Array.of(1, -2), '{"ywtype":"int16","ywsize":[2],"ywdata":[1,-2]}'],
        [Float64Array.of(1, NaN), '{"ywtype":"float64","ywsize":[2],"ywdata":[1,"NaN"]}'],
        [
            BigUint64Array.of(2n ** 53n - 1n, 2n ** 53n),
            '{"ywtype":"uint64","ywsize":[2],"ywdata":[9007199254740991,"9007199254740992"]}',
        ],
        [
            { kind: "bool", shape: [2], data: Uint8Array.of(1, 0) },
            '{"ywtype":"bool","ywsize":[2],"ywdata":[true,false]}',
        ],
        [
            { kind: "complex128", shape: [], data: Float64Array.of(1, -2) },
            '{"ywtype":"complex128","ywsize":[],"ywdata":[1,-2]}',
        ],
        [
            [1, "a", [null]],
            '{"ywtype":"list","ywsize":[3],"ywdata":[1,"a",{"ywtype":"list","ywsize":[1],"ywdata":[null]}]}',
        ],
        [
            { a: 1, 'q"': [] },
            '{"ywtype":"record","ywsize":[],"ywdata":{"a":1,"q\\"":{"ywtype":"list","ywsize":[0],"ywdata":[]}}}',
        ],
    ])("writes a value as its text (%#)", (value, text) => {
        expect(encodeYda(value)).toBe(text);
    });

    it.each<[unknown, string]>([
        [undefined, "The engine has no counterpart for a undefined"],
        [() => 1, "The engine has no counterpart for a function"],
        [new Date(0), "The engine has no counterpart for a Date"],
        [new DataView(new ArrayBuffer(1)), "The engine has no counterpart for a DataView"],
        [2n ** 64n, "18446744073709551616 does not fit into 64 bits"],
        [
            { kind: "float64", shape: [3], data: Float64Array.of(1) },
            "1 values don't fill an array of kind float64 and shape [3]",
        ],
    ])("refuses a value without counterpart (%#)", (value, message) => {
        expect(() => encodeYda(value as YdaInput)).toThrow(message);
    });
});

describe("a value written and read back", () => {
    it.each<[YdaValue]>([
        [null],
        [false],
        [-0],
        [5e-324],
        [Number.MAX_VALUE],
        [Infinity],
        ["\u0000 \ud83d\ude00"],
        [-1n],
        [2n ** 64n - 1n],
        [
            ndarray([
                [1, 2, 3],
                [4, 5, 6],
            ]),
        ],
        [ndarray([1, 2, 3, 4], [1, 2], "complex64")],
        [ndarray([], [0, 4], "uint32")],
        [ndarray([2n ** 60n], [1, 1], "int64")],
        [ndarray([true, false], [2], "bool")],
        [[1, [2, "three"], { four: null }]],
        [{}],
    ])("is the same (%#)", (value) => {
        expect(decodeYda(JSON.parse(encodeYda(value)))).toEqual(value);
    });
});

describe("ndarray", () => {
    it("finds the shape of nested rows", () => {
        expect(
            ndarray([
                [[1], [2]],
                [[3], [4]],
            ]),
        ).toEqual({
            kind: "float64",
            shape: [2, 2, 1],
            data: Float64Array.of(1, 2, 3, 4),
        });
    });

    it("refuses rows of different lengths or depths", () => {
        expect(() => ndarray([[1, 2], [3]])).toThrow("Rows of an array must have the same length");
        expect(() => ndarray([[1], 2])).toThrow("Rows of an array must be nested to the same depth");
        expect(() => ndarray([1, [2]])).toThrow("Rows of an array must be nested to the same depth");
    });

    it("refuses values that don't fill the shape", () => {
        expect(() => ndarray([1, 2, 3], [2, 2])).toThrow(
            "3 values don't fill an array of kind float64 and shape [2, 2]",
        );
    });
});
