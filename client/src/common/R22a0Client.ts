/** A client as its types are where r22a0 is known to be spoken: without what the version lacks. */
import type { AbortOptions } from "./abort.js";
import type { BreakpointCondition, ConditionBreakpoint, LineBreakpoint } from "./breakpoints.js";
import type { PlainCancelOptions } from "./CancelStatus.js";
import type { Client, EvalOptions, EvalResult, FevalOptions } from "./Client.js";
import type { ClientDebugger } from "./ClientDebugger.js";
import type { ClientOutput, ClientOutputOptions } from "./ClientOutput.js";
import type { EventName } from "./events.js";
import type { RequestFuture } from "./RequestFuture.js";
import type { YdaInput, YdaValue } from "./yda.js";

/** A request whose cancel does not tell what became of it. */
export type R22a0RequestFuture<T, N extends string = never> = Omit<RequestFuture<T, N>, "cancel"> & {
    cancel(options: PlainCancelOptions): Promise<undefined>;
};

/** The outputs have one form only. */
export type R22a0FevalOptions<N extends EventName = never> = Omit<FevalOptions<N>, "format">;

/** Everything but a value that is about to be displayed. */
export type R22a0Breakpoint =
    | LineBreakpoint
    | (Omit<ConditionBreakpoint, "type"> & {
          readonly type: Exclude<BreakpointCondition, "UNSUPPRESSED_OUTPUT">;
      });

export type R22a0Debugger = Omit<
    ClientDebugger,
    "setBreakpoint" | "clearBreakpoint" | "clearAllBreakpoints" | "evaluate"
> & {
    setBreakpoint(breakpoint: R22a0Breakpoint, options?: AbortOptions): Promise<void>;
    clearBreakpoint(breakpoint: R22a0Breakpoint, options?: AbortOptions): Promise<void>;
    evaluate(command: string, options?: EvalOptions): R22a0RequestFuture<EvalResult>;
};

/** What an attach gives that offers r22a0 alone; at run time it is a `Client`. */
export type R22a0Client = Omit<
    Client,
    "cancelGroup" | "interrupt" | "cancel" | "output" | "eval" | "feval" | "debugger"
> & {
    readonly debugger: R22a0Debugger;
    eval<N extends EventName = never>(
        command: string,
        options?: EvalOptions<N>,
    ): R22a0RequestFuture<EvalResult, N>;
    feval<N extends EventName = never>(
        name: string,
        args?: readonly YdaInput[],
        options?: R22a0FevalOptions<N>,
    ): R22a0RequestFuture<YdaValue[], N>;
    cancel(requestID: string, options: PlainCancelOptions): Promise<undefined>;
    output(options: ClientOutputOptions & { readonly revert: false }): ClientOutput;
};
