/**
 * The engine's arrays as JSON, and as JavaScript values.
 *
 * Long form, for everything:  {"ywtype": kind, "ywsize": [..], "ywdata": ..}
 *   numbers: the elements in row-major order; complex ones as interleaved pairs; "NaN", "Inf" and "-Inf"
 *     as strings; 64-bit integers beyond 2^53 as decimal strings
 *   text: a string;  list: an array of values;  record: an object of values
 * Short form, where it loses nothing:  a number or a boolean (scalar), a string (text), an array of
 *   numbers (one-dimensional float64), null
 *
 * Both are read. See YdaInput and YdaValue for what becomes what.
 */
import { asArray, asObject, asString, isObject } from "./checks.js";
import { ProtocolError } from "./errors.js";

/** The element type of each kind of numeric array. */
interface NumericData {
    float64: Float64Array;
    float32: Float32Array;
    int8: Int8Array;
    int16: Int16Array;
    int32: Int32Array;
    int64: BigInt64Array;
    uint8: Uint8Array;
    uint16: Uint16Array;
    uint32: Uint32Array;
    uint64: BigUint64Array;
    /** 0 for false, 1 for true. */
    bool: Uint8Array;
    /** Real and imaginary parts in turn, so twice as long as the array has elements. */
    complex128: Float64Array;
    complex64: Float32Array;
}

export type NumericKind = keyof NumericData;

/** An array of numbers with a shape. */
export interface NdArray<K extends NumericKind = NumericKind> {
    readonly kind: K;
    /** Extents; empty for a scalar. The elements stand in row-major order: the last index runs fastest. */
    readonly shape: readonly number[];
    readonly data: NumericData[K];
}

/**
 * What the engine's values become:
 *
 * | Engine | JavaScript |
 * |---|---|
 * | None | null |
 * | bool, text | boolean, string |
 * | real scalar up to 32 bits, float64 | number |
 * | 64-bit integer scalar | bigint |
 * | any other numeric array, complex scalars too | NdArray |
 * | list | array |
 * | record | object |
 */
export type YdaValue =
    | null
    | boolean
    | number
    | bigint
    | string
    | NdArray
    | readonly YdaValue[]
    | { readonly [key: string]: YdaValue };

type TypedArray = NumericData[NumericKind];

/**
 * What may be passed to the engine. The reverse of YdaValue: a number becomes a float64 scalar, a bigint
 * an int64 scalar, or uint64 where int64 is too small. Besides, a typed array becomes a one-dimensional
 * array of its element type.
 */
export type YdaInput =
    | null
    | boolean
    | number
    | bigint
    | string
    | NdArray
    | TypedArray
    | readonly YdaInput[]
    | { readonly [key: string]: YdaInput };

const constructors: { readonly [K in NumericKind]: new (length: number) => NumericData[K] } = {
    float64: Float64Array,
    float32: Float32Array,
    int8: Int8Array,
    int16: Int16Array,
    int32: Int32Array,
    int64: BigInt64Array,
    uint8: Uint8Array,
    uint16: Uint16Array,
    uint32: Uint32Array,
    uint64: BigUint64Array,
    bool: Uint8Array,
    complex128: Float64Array,
    complex64: Float32Array,
};

/** Kinds of a bare typed array, which cannot say that it is meant as bool or complex. */
const kindsOfTypedArrays = (Object.keys(constructors) as NumericKind[]).filter(
    (kind) => kind !== "bool" && !isComplex(kind),
);

function isComplex(kind: NumericKind): boolean {
    return kind === "complex128" || kind === "complex64";
}

/**
 * Makes an array with a shape from nested rows or from flat data.
 *
 * @example ndarray([[1, 2], [3, 4]])                  // 2 by 2, float64
 * @example ndarray([1, 2, 3, 4, 5, 6], [2, 3], "int32")
 * @param values numbers, row-major; nested to any depth if no shape is given
 * @throws RangeError if rows differ in length, or the values don't fill the shape
 */
export function ndarray<K extends NumericKind = "float64">(
    values: NestedNumbers,
    shape?: readonly number[],
    kind: K = "float64" as K,
): NdArray<K> {
    const flat: (number | bigint | boolean)[] = [];
    const found: number[] = [];
    collect(values, 0);
    const isBig = kind === "int64" || kind === "uint64";
    const data = new constructors[kind](flat.length);
    flat.forEach((value, index) => {
        data[index] = isBig ? BigInt(value) : Number(value);
    });
    const width = isComplex(kind) ? 2 : 1;
    const array = { kind, shape: shape ?? found, data };
    if (data.length !== elementCount(array.shape) * width) {
        throw new RangeError(
            `${data.length} values don't fill an array of kind ${kind} and shape [${array.shape.join(", ")}]`,
        );
    }
    return array;

    function collect(value: NestedNumbers | number | bigint | boolean, depth: number): void {
        if (typeof value !== "object") {
            if (depth !== found.length) {
                throw new RangeError("Rows of an array must be nested to the same depth");
            }
            flat.push(value);
            return;
        }
        if (depth === found.length) {
            // Only on the way down to the first value may a new dimension turn up.
            if (flat.length > 0) {
                throw new RangeError("Rows of an array must be nested to the same depth");
            }
            found.push(value.length);
        } else if (found[depth] !== value.length) {
            throw new RangeError("Rows of an array must have the same length");
        }
        for (const item of value) {
            collect(item, depth + 1);
        }
    }
}

/** Numbers in arrays of arrays, each level of one length. */
export type NestedNumbers = readonly (number | bigint | boolean | NestedNumbers)[];

function elementCount(shape: readonly number[]): number {
    return shape.reduce((product, extent) => product * extent, 1);
}

/**
 * Writes a value as the text of one argument.
 *
 * @throws TypeError for a value without counterpart, e.g. undefined or a function
 * @throws RangeError for a bigint beyond 64 bits, and for data that don't fill their shape
 */
export function encodeYda(value: YdaInput): string {
    switch (typeof value) {
        case "number":
            return Number.isFinite(value)
                ? numberText(value)
                : longForm("float64", [], `[${numberText(value)}]`);
        case "bigint":
            return encodeBigInt(value);
        case "boolean":
            return String(value);
        case "string":
            return JSON.stringify(value);
        case "object":
            if (value === null) {
                return "null";
            }
            if (isNdArray(value)) {
                return encodeNumbers(value);
            }
            if (ArrayBuffer.isView(value)) {
                return encodeTypedArray(value);
            }
            if (isInputList(value)) {
                return longForm("list", [value.length], `[${value.map(encodeYda).join(",")}]`);
            }
            return encodeRecord(value);
        default:
            throw new TypeError(`The engine has no counterpart for a ${typeof value}`);
    }
}

/** Whether it holds an integer beyond 2^53, which the text of `encodeYda` spells as a string. */
export function holdsWideIntegers(value: YdaInput): boolean {
    if (typeof value === "bigint") {
        return !isExactAsNumber(value);
    }
    if (typeof value !== "object" || value === null) {
        return false;
    }
    const data: unknown = isNdArray(value) ? value.data : value;
    if (ArrayBuffer.isView(data)) {
        return (
            (data instanceof BigInt64Array || data instanceof BigUint64Array) &&
            !(data as BigInt64Array).every(isExactAsNumber)
        );
    }
    return Object.values(value).some((element) => holdsWideIntegers(element as YdaInput));
}

/**
 * Whether a record in it has a member "ywtype" that a reader of JSON takes for the kind of an array, wherever it
 * stands: any but a text that names no kind of integers.
 */
export function holdsTypeMembers(value: YdaInput): boolean {
    if (typeof value !== "object" || value === null || ArrayBuffer.isView(value) || isNdArray(value)) {
        return false;
    }
    if (!isInputList(value) && Object.hasOwn(value, "ywtype")) {
        const type = value["ywtype"];
        if (typeof type !== "string" || /^u?int(8|16|32|64)$/.test(type)) {
            return true;
        }
    }
    return Object.values(value).some((element) => holdsTypeMembers(element));
}

function isInputList(value: YdaInput): value is readonly YdaInput[] {
    return Array.isArray(value);
}

function isNdArray(value: object): value is NdArray {
    return (
        "kind" in value &&
        "shape" in value &&
        "data" in value &&
        typeof value.kind === "string" &&
        Object.hasOwn(constructors, value.kind) &&
        ArrayBuffer.isView(value.data)
    );
}

function longForm(kind: string, shape: readonly number[], data: string): string {
    return `{"ywtype":"${kind}","ywsize":[${shape.join(",")}],"ywdata":${data}}`;
}

function encodeBigInt(value: bigint): string {
    if (BigInt.asIntN(64, value) === value) {
        return longForm("int64", [], `[${bigintText(value)}]`);
    }
    if (BigInt.asUintN(64, value) === value) {
        return longForm("uint64", [], `[${bigintText(value)}]`);
    }
    throw new RangeError(`${value.toString()} does not fit into 64 bits`);
}

function encodeTypedArray(data: TypedArray | DataView): string {
    const kind = kindsOfTypedArrays.find((candidate) => data instanceof constructors[candidate]);
    if (kind === undefined) {
        throw new TypeError(`The engine has no counterpart for a ${data.constructor.name}`);
    }
    return encodeNumbers({ kind, shape: [(data as TypedArray).length], data: data as TypedArray });
}

function encodeNumbers({ kind, shape, data }: NdArray): string {
    const count = elementCount(shape);
    if (data.length !== count * (isComplex(kind) ? 2 : 1)) {
        throw new RangeError(
            `${data.length} values don't fill an array of kind ${kind} and shape [${shape.join(", ")}]`,
        );
    }
    const texts: string[] = new Array<string>(data.length);
    for (let index = 0; index < data.length; ++index) {
        const element = data[index] as number | bigint;
        texts[index] =
            typeof element === "bigint"
                ? bigintText(element)
                : kind === "bool"
                  ? String(element !== 0)
                  : numberText(element);
    }
    return longForm(kind, shape, `[${texts.join(",")}]`);
}

function encodeRecord(record: { readonly [key: string]: YdaInput }): string {
    const prototype: unknown = Object.getPrototypeOf(record);
    if (prototype !== Object.prototype && prototype !== null) {
        throw new TypeError(`The engine has no counterpart for a ${record.constructor.name}`);
    }
    const members = Object.entries(record).map(
        ([key, value]) => `${JSON.stringify(key)}:${encodeYda(value)}`,
    );
    return longForm("record", [], `{${members.join(",")}}`);
}

/** JSON's own spelling, but for the minus of zero, which JSON.stringify drops, and what it lacks. */
function numberText(value: number): string {
    if (Number.isFinite(value)) {
        return Object.is(value, -0) ? "-0.0" : String(value);
    }
    return Number.isNaN(value) ? '"NaN"' : value > 0 ? '"Inf"' : '"-Inf"';
}

function isExactAsNumber(value: bigint): boolean {
    return value <= Number.MAX_SAFE_INTEGER && value >= Number.MIN_SAFE_INTEGER;
}

function bigintText(value: bigint): string {
    return isExactAsNumber(value) ? value.toString() : `"${value.toString()}"`;
}

/**
 * Reads one result.
 *
 * @throws ProtocolError if it is in neither form
 */
export function decodeYda(value: unknown): YdaValue {
    if (
        value === null ||
        typeof value === "boolean" ||
        typeof value === "number" ||
        typeof value === "string"
    ) {
        return value;
    }
    if (Array.isArray(value)) {
        return decodeNumbers("float64", [value.length], value);
    }
    const long = asObject(value, "An array");
    const kind = asString(long["ywtype"], "ywtype");
    switch (kind) {
        case "text":
            return asString(long["ywdata"], "ywdata of a text");
        case "list":
            return asArray(long["ywdata"], "ywdata of a list").map(decodeYda);
        case "record":
            return Object.fromEntries(
                Object.entries(asObject(long["ywdata"], "ywdata of a record")).map(([key, member]) => [
                    key,
                    decodeYda(member),
                ]),
            );
        default:
            if (!Object.hasOwn(constructors, kind)) {
                throw new ProtocolError(
                    `An array is of the unknown kind "${kind}"; known are ${Object.keys(constructors).join(", ")}, text, list and record`,
                );
            }
            return decodeNumbers(
                kind as NumericKind,
                asArray(long["ywsize"], `ywsize of a ${kind} array`).map(asExtent),
                asArray(long["ywdata"], `ywdata of a ${kind} array`),
            );
    }
}

function asExtent(value: unknown): number {
    if (typeof value !== "number" || !Number.isSafeInteger(value) || value < 0) {
        throw new ProtocolError(
            `ywsize should hold extents of 0 and more, but holds ${JSON.stringify(value)}`,
        );
    }
    return value;
}

function decodeNumbers(kind: NumericKind, shape: readonly number[], elements: readonly unknown[]): YdaValue {
    const width = isComplex(kind) ? 2 : 1;
    if (elements.length !== elementCount(shape) * width) {
        throw new ProtocolError(
            `${elements.length} values don't fill an array of kind ${kind} and shape [${shape.join(", ")}]`,
        );
    }
    const data = new constructors[kind](elements.length);
    const read: (element: unknown) => number | bigint =
        kind === "int64" || kind === "uint64" ? readBigInt : kind === "bool" ? readBoolean : readNumber;
    for (let index = 0; index < elements.length; ++index) {
        data[index] = read(elements[index]);
    }
    if (shape.length === 0 && width === 1) {
        const scalar = data[0] as number | bigint;
        return kind === "bool" ? scalar !== 0 : scalar;
    }
    return { kind, shape, data };
}

function readNumber(element: unknown): number {
    switch (element) {
        case "NaN":
            return NaN;
        case "Inf":
            return Infinity;
        case "-Inf":
            return -Infinity;
        default:
            if (typeof element !== "number") {
                throw badElement("a number, or one of the strings NaN, Inf and -Inf", element);
            }
            return element;
    }
}

function readBigInt(element: unknown): bigint {
    if (typeof element === "number" && Number.isInteger(element)) {
        return BigInt(element);
    }
    if (typeof element === "string" && /^-?\d+$/.test(element)) {
        return BigInt(element);
    }
    throw badElement("an integer or a string of digits", element);
}

function readBoolean(element: unknown): number {
    if (typeof element !== "boolean") {
        throw badElement("a boolean", element);
    }
    return element ? 1 : 0;
}

function badElement(expected: string, element: unknown): ProtocolError {
    const found = isObject(element) ? "an object" : JSON.stringify(element);
    return new ProtocolError(`An element of an array should be ${expected}, but is ${found}`);
}
