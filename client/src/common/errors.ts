import type { CancelStatus } from "./CancelStatus.js";

/**
 * Everything that this library rejects or throws with is one of these classes, so that a caller
 * can tell a failed command from a refused message and from a lost connection.
 */

/** One call frame of a failed command, innermost last, as the engine reports it. */
export interface StackFrame {
    /** Path of the source file, or the engine's name for the text of a command. */
    readonly fileName: string;
    /** Name of the function, or the engine's name for the outermost text of a command. */
    readonly functionName: string;
    /** Line in the file, counted from 1. */
    readonly lineNumber: number;
    /** The text of that line; empty if it is not known. */
    readonly sourceLine: string;
}

/** What the engine tells about a failure; the fields are those of the response's `error` object. */
export interface YvmFailure {
    readonly status: number;
    readonly message: string;
    readonly identifier: string;
    readonly functionName: string;
    readonly stackFrames: readonly StackFrame[];
    readonly causes: readonly YvmFailure[];
    readonly shutdown: boolean;
    readonly arguments: readonly unknown[];
    readonly exceptionJson: Readonly<Record<string, unknown>> | null;
}

/** A command, a call, an attach or a detach failed, and this is what the engine said. */
export class YvmError extends Error implements YvmFailure {
    override readonly name = "YvmError";
    /**
     * 1 the command raised an error, 2 unclassified, 3 cancelled or interrupted, 4 the engine is shutting
     * down, 5 the request was at fault and nothing ran.
     */
    readonly status: number;
    /** Kind of failure, for a raised exception its type, e.g. `ZeroDivisionError`. May be empty. */
    readonly identifier: string;
    /** Function in which it arose; may be empty. */
    readonly functionName: string;
    readonly stackFrames: readonly StackFrame[];
    /** What led to this failure. The first of them is also the standard `cause`. */
    readonly causes: readonly YvmError[];
    /** Whether the engine is going down. */
    readonly shutdown: boolean;
    readonly arguments: readonly unknown[];
    readonly exceptionJson: Readonly<Record<string, unknown>> | null;

    constructor(failure: YvmFailure) {
        const causes = failure.causes.map((cause) => new YvmError(cause));
        super(failure.message, causes[0] && { cause: causes[0] });
        this.status = failure.status;
        this.identifier = failure.identifier;
        this.functionName = failure.functionName;
        this.stackFrames = failure.stackFrames;
        this.causes = causes;
        this.shutdown = failure.shutdown;
        this.arguments = failure.arguments;
        this.exceptionJson = failure.exceptionJson;
    }
}

/** The server could not be reached, or the connection was lost before an answer came. */
export class ConnectionError extends Error {
    override readonly name = "ConnectionError";
}

/** The server answered a handshake, a publish or a subscribe with a refusal. */
export class RefusedError extends Error {
    override readonly name = "RefusedError";
    /** The server's code, e.g. 401 for a wrong token; 0 if it sent none. */
    readonly code: number;
    /** The server's reason, without the code. */
    readonly reason: string;

    /**
     * @param what what was refused, e.g. `handshake` or `publish on /yvm/attach/request`
     * @param error the text of the reply, of the form `code:arguments:reason`
     */
    constructor(what: string, error: string) {
        const parts = /^(\d{3}):([^:]*):(.*)$/s.exec(error);
        const reason = parts?.[3] ?? error;
        super(`The server refused the ${what}: ${error || "no reason given"}`);
        this.code = parts ? Number(parts[1]) : 0;
        this.reason = reason;
    }
}

/** The connection was disconnected or the client was detached, by this side, before an answer came. */
export class ClosedError extends Error {
    override readonly name = "ClosedError";
}

/** The caller's AbortSignal was aborted before the call had settled. Its `cause` is the signal's reason. */
export class AbortedError extends Error {
    override readonly name = "AbortedError";
    /**
     * What the engine says became of the request; undefined if there was none to cancel, since the signal
     * was aborted before anything was sent, or the call was no request of the engine's; and with r22a0, where
     * the request is cancelled, but the engine does not say.
     *
     * It settles when the request has really stopped, which a command that cannot be interrupted puts off.
     * It rejects like any other call if the answer cannot come any more, and need not be looked at.
     */
    readonly cancelStatus: Promise<CancelStatus> | undefined;

    constructor(reason: unknown, cancelStatus?: Promise<CancelStatus>) {
        super("The call was aborted", { cause: reason });
        cancelStatus?.catch(() => undefined); // nobody has to wait for it
        this.cancelStatus = cancelStatus;
    }
}

/**
 * The call takes something that the version of the protocol lacks which the client was attached with. Nothing
 * has been sent.
 */
export class UnsupportedError extends Error {
    override readonly name = "UnsupportedError";
    /** The version, e.g. `r22a0`. */
    readonly apiVersion: string;

    /** @param what what it lacks, as the subject of a sentence */
    constructor(apiVersion: string, what: string) {
        super(`Version ${apiVersion} of the protocol has no ${what}`);
        this.apiVersion = apiVersion;
    }
}

/** The server sent something that this library does not understand. */
export class ProtocolError extends Error {
    override readonly name = "ProtocolError";
}
