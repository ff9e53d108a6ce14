/**
 * The engine's events by their names, what each of them says, and the door at which that is checked. The names
 * of the fields are those of the wire.
 */
import { readBreakpoints, type Breakpoints } from "./breakpoints.js";
import {
    asArray,
    asBoolean,
    asNumber,
    asObject,
    asString,
    readStackFrames,
    readTextChunk,
    type JsonObject,
    type TextChunk,
} from "./checks.js";
import { ProtocolError, type StackFrame } from "./errors.js";

/** What the engine does: it runs a command, has nothing to do, waits within a command, or stands still in one. */
export interface PromptState {
    readonly state: "busy" | "idle" | "paused" | "debug";
}

/** A value that is displayed, in several forms of which a reader takes the best that it knows. */
export interface StructuredOutput {
    /**
     * By media type: a text for `text/plain`, `text/html`, `image/svg+xml`; base64 for `image/png` and other
     * binary ones; any value for `application/json`. Markup is what the command made of it, and not to be trusted.
     */
    readonly data: JsonObject;
    /** By media type, e.g. `{"image/png": {"width": 640, "height": 480}}`, in pixels of a page. */
    readonly metadata: JsonObject;
}

/** A command has failed. Its request rejects with the same. */
export interface PrintableError {
    /** The exception's type. */
    readonly identifier: string;
    readonly message: string;
    readonly stackFrames: readonly StackFrame[];
}

/** A command asks for a line of text; `Client.answer` replies. */
export interface InputRequest {
    readonly id: string;
    readonly prompt: string;
    /** Whether the answer is not to be seen. */
    readonly password: boolean;
}

/** How far a command is with something. */
export interface Progress {
    /** Which of the command's bars. */
    readonly id: number;
    readonly label: string;
    /** NaN if the command has made something of it that is no finite number. */
    readonly done: number;
    /** What `done` will be at the end; null if that is not known. */
    readonly total: number | null;
    /** Steps a second; null if that cannot be told yet. */
    readonly rate: number | null;
    /** Seconds until the end; null if that cannot be told. */
    readonly remaining: number | null;
    /** There is no more of it, whether all was done or not. */
    readonly finished: boolean;
}

/** Which variables of the workspace are new, mean another object, or are gone; each sorted. */
export interface WorkspaceChange {
    readonly appeared: readonly string[];
    readonly changed: readonly string[];
    readonly gone: readonly string[];
}

/** Why a command has stopped: at a breakpoint of which kind, behind a step, or since somebody broke in. */
export type StopReason =
    "breakpoint" | "step" | "break" | "error" | "warning" | "caughtError" | "nanInf" | "output";

/** A command has stopped in the debugger. */
export interface DebuggerStopped {
    readonly reason: StopReason;
    /** How many stops there are on top of one another, this one included. */
    readonly level: number;
    /** More of the reason, e.g. the text of the error, or why a condition could not be evaluated; may be empty. */
    readonly message: string;
    /** Where it has stopped, as the last of the frames tells too. */
    readonly fileName: string;
    readonly lineNumber: number;
    readonly stackFrames: readonly StackFrame[];
}

/** A command that had stopped goes on, or has ended. */
export interface DebuggerResumed {
    /** Of the stop that is over; from 2 on, the one beneath it still stands. */
    readonly level: number;
}

/** The events that this package knows, with what each of them says. */
export interface EngineEvents {
    "ylutil::prompt::PromptEvent": PromptState;
    /** Text of commands' own streams. */
    "ylutil::io::TextBaseEvent": TextChunk;
    /** Text that goes to the client-wide sinks. */
    "ylutil::io::SinkTextEvent": TextChunk;
    "ylutil::io::StructuredOutputEvent": StructuredOutput;
    "ylutil::io::PrintableErrorEvent": PrintableError;
    "services::prompt::InputRequestEvent": InputRequest;
    /** What is on the console is to be cleared. */
    "services::io::CLCEvent": JsonObject;
    /** The cursor is to go to the console's first place. */
    "services::io::HomeEvent": JsonObject;
    "yvm::ProgressEvent": Progress;
    "yvm::WorkspaceEvent": WorkspaceChange;
    "yvm::DebuggerStoppedEvent": DebuggerStopped;
    "yvm::DebuggerResumedEvent": DebuggerResumed;
    "yvm::BreakpointsChangedEvent": Breakpoints;
}

/** The name of an event: one of those that this package knows, or any other that the server has. */
export type EventName = keyof EngineEvents | (string & Record<never, never>);

/** What the event of this name says; unknown for one that this package does not know. */
export type EventData<N extends string> = N extends keyof EngineEvents ? EngineEvents[N] : unknown;

/** An event with its name, by which TypeScript tells what `data` is. */
export type EventOf<N extends string> = N extends string
    ? { readonly name: N; readonly data: EventData<N> }
    : never;

const readers: { readonly [N in keyof EngineEvents]: (data: JsonObject, path: string) => EngineEvents[N] } = {
    "ylutil::prompt::PromptEvent": (data, path) => ({ state: readState(data["state"], `${path}.state`) }),
    "ylutil::io::TextBaseEvent": readTextChunk,
    "ylutil::io::SinkTextEvent": readTextChunk,
    "ylutil::io::StructuredOutputEvent": (data, path) => ({
        data: asObject(data["data"], `${path}.data`),
        metadata: asObject(data["metadata"], `${path}.metadata`),
    }),
    "ylutil::io::PrintableErrorEvent": (data, path) => ({
        identifier: asString(data["identifier"], `${path}.identifier`),
        message: asString(data["message"], `${path}.message`),
        stackFrames: readStackFrames(data["stackFrames"], `${path}.stackFrames`),
    }),
    "services::prompt::InputRequestEvent": (data, path) => ({
        id: asString(data["id"], `${path}.id`),
        prompt: asString(data["prompt"], `${path}.prompt`),
        password: asBoolean(data["password"], `${path}.password`),
    }),
    "services::io::CLCEvent": (data) => data,
    "services::io::HomeEvent": (data) => data,
    "yvm::ProgressEvent": (data, path) => ({
        id: asNumber(data["id"], `${path}.id`),
        label: asString(data["label"], `${path}.label`),
        done: asNumberOrNull(data["done"], `${path}.done`) ?? NaN,
        total: asNumberOrNull(data["total"], `${path}.total`),
        rate: asNumberOrNull(data["rate"], `${path}.rate`),
        remaining: asNumberOrNull(data["remaining"], `${path}.remaining`),
        finished: asBoolean(data["finished"], `${path}.finished`),
    }),
    "yvm::WorkspaceEvent": (data, path) => ({
        appeared: asStrings(data["appeared"], `${path}.appeared`),
        changed: asStrings(data["changed"], `${path}.changed`),
        gone: asStrings(data["gone"], `${path}.gone`),
    }),
    "yvm::DebuggerStoppedEvent": (data, path) => ({
        reason: asString(data["reason"], `${path}.reason`) as StopReason, // or one of a later version
        level: asNumber(data["level"], `${path}.level`),
        message: asString(data["message"], `${path}.message`),
        fileName: asString(data["fileName"], `${path}.fileName`),
        lineNumber: asNumber(data["lineNumber"], `${path}.lineNumber`),
        stackFrames: readStackFrames(data["stackFrames"], `${path}.stackFrames`),
    }),
    "yvm::DebuggerResumedEvent": (data, path) => ({ level: asNumber(data["level"], `${path}.level`) }),
    "yvm::BreakpointsChangedEvent": readBreakpoints,
};

/**
 * Checks what an event says.
 *
 * @throws ProtocolError if it is not what its name promises; that of an unknown event is taken as it is
 */
export function readEvent<N extends string>(name: N, data: unknown): EventOf<N> {
    const isKnown = Object.hasOwn(readers, name);
    const read = readers[name as keyof EngineEvents];
    return { name, data: isKnown ? read(asObject(data, name), name) : data } as EventOf<N>;
}

function readState(value: unknown, path: string): PromptState["state"] {
    switch (value) {
        case "busy":
        case "idle":
        case "paused":
        case "debug":
            return value;
        default:
            throw new ProtocolError(
                `${path} should be busy, idle, paused or debug, but is ${JSON.stringify(value)}`,
            );
    }
}

function asNumberOrNull(value: unknown, path: string): number | null {
    return value === null ? null : asNumber(value, path);
}

function asStrings(value: unknown, path: string): readonly string[] {
    return asArray(value, path).map((item, index) => asString(item, `${path}[${String(index)}]`));
}
