/** Breakpoints, in requests and in what the engine tells; the names of the fields are those of the wire. */
import { asArray, asInteger, asObject, asString, type JsonObject } from "./checks.js";

/** A place within a file. */
export type BreakpointLocation =
    | {
          /** Counted from 1. */
          readonly lineNumber: number;
          /** Which of the anonymous functions on that line, counted from 1; 0 for the line's own code. */
          readonly anonymousIndex?: number;
      }
    | {
          /** The name of a function of the file. */
          readonly localFunction: string;
      };

/** Stops at a place in a file, or of a command that was evaluated. */
export interface LineBreakpoint {
    readonly fileName: string;
    /** Without it, the first line that runs in the file. */
    readonly location?: BreakpointLocation;
    /** Stops only if this holds: Python source, evaluated there. */
    readonly expression?: string;
}

/** What a breakpoint on a condition waits for, wherever it arises. */
export type BreakpointCondition = "ERROR" | "WARNING" | "CAUGHT_ERROR" | "NAN_INF" | "UNSUPPRESSED_OUTPUT";

/** Stops when a condition arises. */
export interface ConditionBreakpoint {
    readonly type: BreakpointCondition;
    /** Only for exceptions or warnings of this type, e.g. `ValueError`. */
    readonly messageId?: string;
}

export type Breakpoint = LineBreakpoint | ConditionBreakpoint;

/** A breakpoint at a place, as it stands in the engine. */
export interface PlacedBreakpoint extends LineBreakpoint {
    /**
     * Where one on a line stands, which is behind the line of `location` if that has no code. Undefined for all
     * others.
     */
    readonly lineNumber?: number;
}

/** All breakpoints that there are, of whichever client. */
export interface Breakpoints {
    /** Each can be handed to `ClientDebugger.clearBreakpoint` as it is. */
    readonly breakpoints: readonly (PlacedBreakpoint | ConditionBreakpoint)[];
}

/** What a request says of a breakpoint, and nothing that comes with it. */
export function breakpointKeys(breakpoint: Breakpoint): JsonObject {
    if ("type" in breakpoint) {
        const { type, messageId } = breakpoint;
        return { type, ...(messageId !== undefined && { messageId }) };
    }
    const { fileName, location, expression } = breakpoint;
    return {
        fileName,
        ...(location !== undefined && { location }),
        ...(expression !== undefined && { expression }),
    };
}

/** @throws ProtocolError if it is something else */
export function readBreakpoints(data: JsonObject, path: string): Breakpoints {
    return {
        breakpoints: asArray(data["breakpoints"], `${path}.breakpoints`).map((item, index) =>
            readBreakpoint(item, `${path}.breakpoints[${String(index)}]`),
        ),
    };
}

function readBreakpoint(value: unknown, path: string): PlacedBreakpoint | ConditionBreakpoint {
    const object = asObject(value, path);
    const optional = <T>(key: string, read: (member: unknown, path: string) => T) =>
        object[key] === undefined ? {} : { [key]: read(object[key], `${path}.${key}`) };
    if (object["type"] !== undefined) {
        return {
            type: asString(object["type"], `${path}.type`) as BreakpointCondition, // or one of a later version
            ...optional("messageId", asString),
        };
    }
    return {
        fileName: asString(object["fileName"], `${path}.fileName`),
        ...optional("location", readLocation),
        ...optional("expression", asString),
        ...optional("lineNumber", asInteger),
    };
}

function readLocation(value: unknown, path: string): BreakpointLocation {
    const object = asObject(value, path);
    if (object["localFunction"] !== undefined) {
        return { localFunction: asString(object["localFunction"], `${path}.localFunction`) };
    }
    const lineNumber = asInteger(object["lineNumber"], `${path}.lineNumber`);
    const anonymousIndex = object["anonymousIndex"];
    return anonymousIndex === undefined
        ? { lineNumber }
        : { lineNumber, anonymousIndex: asInteger(anonymousIndex, `${path}.anonymousIndex`) };
}
