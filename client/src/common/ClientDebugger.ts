import { startAbortable, type AbortOptions } from "./abort.js";
import { breakpointKeys, readBreakpoints, type Breakpoint, type Breakpoints } from "./breakpoints.js";
import { asArray, asBoolean, asInteger, asObject, asString, type JsonObject } from "./checks.js";
import type { EvalOptions, EvalResult, FevalOptions } from "./Client.js";
import type { StackFrame } from "./errors.js";
import type { RequestFuture } from "./RequestFuture.js";
import type { RunOptions } from "./RunOptions.js";
import type { Feature } from "./versions.js";
import type { YdaInput, YdaValue } from "./yda.js";

/** What the debugger needs of its client. */
export interface DebuggerHost {
    /** @throws UnsupportedError if the version lacks the feature, of which `what` tells the reader */
    require(feature: Feature, what: string): void;
    request(channel: string, keys: JsonObject): { readonly answered: Promise<unknown> };
    eval(command: string, options: EvalOptions): RequestFuture<EvalResult>;
    feval(name: string, args: readonly YdaInput[], options: FevalOptions): RequestFuture<YdaValue[]>;
}

/** A frame of the stopped command. */
export interface DebugFrame extends StackFrame {
    /** Whether it is the one whose variables are looked at. */
    readonly selected: boolean;
}

/** A variable of the selected frame. */
export interface DebugVariable {
    readonly name: string;
    readonly type: string;
    /** Extents of an array; empty for anything else. */
    readonly shape: readonly number[];
    /** How it is shown; a long text is cut. */
    readonly text: string;
}

/** What moves a stopped command on, or evaluates in it, waits for the stop. */
const whileStopped: RunOptions = { dequeueMode: "DEQUEUE_AT_DEBUG_PROMPT" };
/** What only looks is answered at once. */
const atOnce: RunOptions = { dequeueMode: "DEQUEUE_AT_PPE" };

/**
 * The engine's debugger, `Client.debugger`. Breakpoints and stops are the engine's: all its clients share them,
 * and any of them may move on what another's command has stopped in.
 *
 * What happens is told by events, see `Client.events`: `yvm::DebuggerStoppedEvent`, `yvm::DebuggerResumedEvent`
 * and `yvm::BreakpointsChangedEvent`.
 *
 * All calls reject as `RequestFuture` tells. What moves a stopped command on, or evaluates in it, waits for the next
 * stop if there is none, unless it is aborted; what only looks rejects then. The signal of the other calls ends the
 * wait for their answer, and nothing else.
 */
export class ClientDebugger {
    readonly #host: DebuggerHost;

    /** @internal Use `Client.debugger`. */
    constructor(host: DebuggerHost) {
        this.#host = host;
    }

    /**
     * Sets a breakpoint, or replaces the one at that place. A line without code gives the place to the next one
     * that has some, which the event tells before this resolves.
     *
     * @throws YvmError if there is no such file, function or code, or the expression is none; UnsupportedError
     * with r22a0 for `UNSUPPRESSED_OUTPUT`
     */
    async setBreakpoint(breakpoint: Breakpoint, options: AbortOptions = {}): Promise<void> {
        const channel = "type" in breakpoint ? "/setGlobalBreakpoint" : "/setLineBreakpoint";
        this.#requireType(breakpoint);
        await this.#ask(channel, { breakpoint: breakpointKeys(breakpoint) }, options);
    }

    /** Clears a breakpoint: by the line that it was set on, or the one where it stands. */
    async clearBreakpoint(breakpoint: Breakpoint, options: AbortOptions = {}): Promise<void> {
        const channel = "type" in breakpoint ? "/clearGlobalBreakpoint" : "/clearLineBreakpoint";
        this.#requireType(breakpoint);
        await this.#ask(channel, { breakpoint: breakpointKeys(breakpoint) }, options);
    }

    /**
     * Clears all breakpoints, those of other clients too.
     *
     * @throws UnsupportedError with r22a0
     */
    async clearAllBreakpoints(options: AbortOptions = {}): Promise<void> {
        this.#host.require("clearAllBreakpoints", "clearAllBreakpoints");
        await this.#ask("/clearAllBreakpoints", {}, options);
    }

    /**
     * Stops the command that the engine runs where it is. Resolves when the engine was asked, whether it runs
     * something or not; the event tells of the stop.
     */
    breakIn(options: AbortOptions = {}): Promise<void> {
        return this.#ask("/breakInDebugger", {}, options);
    }

    /** Lets the stopped command go on. */
    async resume(options: AbortOptions = {}): Promise<void> {
        await this.#move("resume", options);
    }

    /** Goes on to the next line of the selected frame. */
    async step(options: AbortOptions = {}): Promise<void> {
        await this.#move("step", options);
    }

    /** Goes on to the next line, also of a function that is called. */
    async stepIn(options: AbortOptions = {}): Promise<void> {
        await this.#move("step_in", options);
    }

    /** Goes on to the next line of the caller. */
    async stepOut(options: AbortOptions = {}): Promise<void> {
        await this.#move("step_out", options);
    }

    /** Ends the stopped command as an interrupt would. */
    async quit(options: AbortOptions = {}): Promise<void> {
        await this.#move("quit", options);
    }

    /** Selects the frame so many calls out from the selected one, 1 by default. */
    async up(count = 1, options: AbortOptions = {}): Promise<DebugFrame[]> {
        return readStack(await this.#query("up", options, whileStopped, [BigInt(count)]));
    }

    /** Selects the frame so many calls in from the selected one, 1 by default. */
    async down(count = 1, options: AbortOptions = {}): Promise<DebugFrame[]> {
        return readStack(await this.#query("down", options, whileStopped, [BigInt(count)]));
    }

    /** The frames of the stopped command, innermost last. */
    async stack(options: AbortOptions = {}): Promise<DebugFrame[]> {
        return readStack(await this.#query("stack", options, atOnce));
    }

    /** The variables of the selected frame, by name. */
    async locals(options: AbortOptions = {}): Promise<DebugVariable[]> {
        return readLocals(await this.#query("locals", options, atOnce));
    }

    /** All breakpoints that there are, of whichever client; those on a line by the one where they stand. */
    async breakpoints(options: AbortOptions = {}): Promise<Breakpoints["breakpoints"]> {
        return readListing(await this.#query("breakpoints", options, atOnce));
    }

    /** Evaluates a command in the selected frame, whose variables it can see and change. */
    evaluate(command: string, options: EvalOptions = {}): RequestFuture<EvalResult> {
        return this.#host.eval(command, {
            ...options,
            runOptions: { ...options.runOptions, ...whileStopped },
        });
    }

    #requireType(breakpoint: Breakpoint): void {
        if ("type" in breakpoint && breakpoint.type === "UNSUPPRESSED_OUTPUT") {
            this.#host.require("unsuppressedOutput", "breakpoints of type UNSUPPRESSED_OUTPUT");
        }
    }

    #ask(channel: string, keys: JsonObject, { signal }: AbortOptions): Promise<void> {
        return startAbortable(
            signal,
            async () => {
                await this.#host.request(channel, keys).answered;
            },
            () => undefined,
        );
    }

    async #move(name: string, { signal }: AbortOptions): Promise<void> {
        await this.#host.feval(`yvm.debug.${name}`, [], {
            numOutputs: 0,
            output: "none",
            runOptions: whileStopped,
            signal,
        });
    }

    async #query(
        name: string,
        { signal }: AbortOptions,
        runOptions: RunOptions,
        args: readonly YdaInput[] = [],
    ): Promise<YdaValue | undefined> {
        const [output] = await this.#host.feval(`yvm.debug.${name}`, args, {
            output: "none",
            runOptions,
            signal,
        });
        return output;
    }
}

function readStack(value: unknown): DebugFrame[] {
    return asArray(value, "stack").map((item, index) => {
        const path = `stack[${String(index)}]`;
        const frame = asObject(item, path);
        return {
            fileName: asString(frame["file"], `${path}.file`),
            functionName: asString(frame["function"], `${path}.function`),
            lineNumber: asInteger(frame["line"], `${path}.line`),
            sourceLine: asString(frame["source"], `${path}.source`),
            selected: asBoolean(frame["selected"], `${path}.selected`),
        };
    });
}

function readLocals(value: unknown): DebugVariable[] {
    return asArray(value, "locals").map((item, index) => {
        const path = `locals[${String(index)}]`;
        const variable = asObject(item, path);
        return {
            name: asString(variable["name"], `${path}.name`),
            type: asString(variable["type"], `${path}.type`),
            shape: asArray(variable["shape"], `${path}.shape`).map((extent, axis) =>
                asInteger(extent, `${path}.shape[${String(axis)}]`),
            ),
            text: asString(variable["text"], `${path}.text`),
        };
    });
}

/** The engine's own listing, in the words of Python, which the events spell as requests do. */
function readListing(value: unknown): Breakpoints["breakpoints"] {
    const breakpoints = asArray(value, "breakpoints").map((item, index) => {
        const entry = asObject(item, `breakpoints[${String(index)}]`);
        const {
            type,
            message_id: messageId,
            file: fileName,
            line: lineNumber,
            condition: expression,
        } = entry;
        const { function: localFunction, anonymous_index: anonymousIndex } = entry;
        if (type !== undefined) {
            return { type, messageId };
        }
        const location =
            localFunction !== undefined
                ? { localFunction }
                : lineNumber !== undefined
                  ? { lineNumber, anonymousIndex }
                  : undefined;
        return { fileName, location, expression, lineNumber };
    });
    return readBreakpoints({ breakpoints }, "result").breakpoints;
}
