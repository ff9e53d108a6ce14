import type { AbortOptions } from "./abort.js";

/**
 * What became of a request that was to be cancelled:
 *
 * - "CANCEL_BEFORE_RUNNING": it waited, and will never run
 * - "CANCEL_WHILE_RUNNING": it ran, and has stopped
 * - "UNABLE_TO_CANCEL_ALREADY_DONE": it ended by itself, or was never known
 * - "UNABLE_TO_CANCEL_OTHER": it runs and was not to be interrupted, or could not be cancelled
 *
 * Any other text of a later server is passed on as it is.
 */
export type CancelStatus =
    | "CANCEL_BEFORE_RUNNING"
    | "CANCEL_WHILE_RUNNING"
    | "UNABLE_TO_CANCEL_ALREADY_DONE"
    | "UNABLE_TO_CANCEL_OTHER"
    | (string & Record<never, never>);

/** The signal ends the wait for the answer, which may be long. What the engine was asked for stays asked for. */
export interface CancelOptions extends AbortOptions {
    /** Stop what runs already, too. Default false: only what waits is cancelled. */
    readonly interrupt?: boolean;
    /** Whether to be told what became of the request. Default true, which r22a0 cannot do. */
    readonly status?: true;
}

/** A cancel that does not ask what became of the request, in any version. */
export interface PlainCancelOptions extends Omit<CancelOptions, "status"> {
    readonly status: false;
}
