/**
 * The door for incoming JSON: every message is checked here once, and beyond it everything is typed.
 * A failed check throws a ProtocolError that names the place and what was expected there.
 */
import { ProtocolError, type StackFrame, type YvmFailure } from "./errors.js";

/** A JSON object of unknown content. */
export type JsonObject = Readonly<Record<string, unknown>>;

export function isObject(value: unknown): value is JsonObject {
    return typeof value === "object" && value !== null && !Array.isArray(value);
}

function expectation(path: string, expected: string, value: unknown): ProtocolError {
    const found = value === null ? "null" : Array.isArray(value) ? "an array" : typeof value;
    return new ProtocolError(`${path} should be ${expected}, but is ${found}`);
}

export function asObject(value: unknown, path: string): JsonObject {
    if (!isObject(value)) {
        throw expectation(path, "an object", value);
    }
    return value;
}

export function asString(value: unknown, path: string): string {
    if (typeof value !== "string") {
        throw expectation(path, "a string", value);
    }
    return value;
}

export function asNumber(value: unknown, path: string): number {
    if (typeof value !== "number") {
        throw expectation(path, "a number", value);
    }
    return value;
}

/** A number, also as an integer of the engine, which becomes the nearest number. */
export function asInteger(value: unknown, path: string): number {
    return typeof value === "bigint" ? Number(value) : asNumber(value, path);
}

export function asBoolean(value: unknown, path: string): boolean {
    if (typeof value !== "boolean") {
        throw expectation(path, "a boolean", value);
    }
    return value;
}

/** The one of the texts that it is. */
export function asOneOf<T extends string>(value: unknown, texts: readonly T[], path: string): T {
    const found = texts.find((text) => text === value);
    if (found === undefined) {
        throw expectation(path, texts.map((text) => JSON.stringify(text)).join(" or "), value);
    }
    return found;
}

export function asArray(value: unknown, path: string): readonly unknown[] {
    if (!Array.isArray(value)) {
        throw expectation(path, "an array", value);
    }
    return value;
}

/** The envelope of every response: whose it is, and the failure if it failed. */
export interface Response {
    readonly requestID: string;
    readonly error: YvmFailure | undefined;
    /** The whole message, for the keys of the request at hand. */
    readonly body: JsonObject;
}

export function readResponse(data: unknown, path: string): Response {
    const body = asObject(data, path);
    return {
        requestID: asString(body["requestID"], `${path}.requestID`),
        error: body["error"] === undefined ? undefined : readFailure(body["error"], `${path}.error`),
        body,
    };
}

/** A piece of text that a command printed. */
export interface TextChunk {
    /** 0 is standard output, 1 standard error. */
    readonly stream: 0 | 1;
    readonly text: string;
}

export interface TextMessage extends TextChunk {
    /** Of the command that printed it. */
    readonly requestID: string;
}

/** Text of no particular command. */
export function readTextChunk(data: unknown, path: string): TextChunk {
    const body = asObject(data, path);
    const stream = body["stream"];
    if (stream !== 0 && stream !== 1) {
        throw expectation(`${path}.stream`, "0 or 1", stream);
    }
    return { stream, text: asString(body["text"], `${path}.text`) };
}

export function readTextMessage(data: unknown, path: string): TextMessage {
    const { stream, text } = readTextChunk(data, path);
    return { requestID: asString(asObject(data, path)["requestID"], `${path}.requestID`), stream, text };
}

function readFailure(value: unknown, path: string): YvmFailure {
    const error = asObject(value, path);
    return {
        status: asNumber(error["status"], `${path}.status`),
        message: asString(error["message"], `${path}.message`),
        identifier: asString(error["identifier"], `${path}.identifier`),
        functionName: asString(error["functionName"], `${path}.functionName`),
        stackFrames: readStackFrames(error["stackFrames"], `${path}.stackFrames`),
        causes: asArray(error["causes"], `${path}.causes`).map((cause, index) =>
            readFailure(cause, `${path}.causes[${index}]`),
        ),
        shutdown: asBoolean(error["shutdown"], `${path}.shutdown`),
        arguments: asArray(error["arguments"], `${path}.arguments`),
        exceptionJson:
            error["exceptionJson"] === null
                ? null
                : asObject(error["exceptionJson"], `${path}.exceptionJson`),
    };
}

export function readStackFrames(value: unknown, path: string): readonly StackFrame[] {
    return asArray(value, path).map((frame, index) => readStackFrame(frame, `${path}[${String(index)}]`));
}

function readStackFrame(value: unknown, path: string): StackFrame {
    const frame = asObject(value, path);
    return {
        fileName: asString(frame["fileName"], `${path}.fileName`),
        functionName: asString(frame["functionName"], `${path}.functionName`),
        lineNumber: asNumber(frame["lineNumber"], `${path}.lineNumber`),
        sourceLine: asString(frame["sourceLine"], `${path}.sourceLine`),
    };
}
