/** What the package offers, through its door for browsers and its door for Node.js alike. */
export type { AbortOptions } from "./abort.js";
export type {
    Breakpoint,
    BreakpointCondition,
    BreakpointLocation,
    Breakpoints,
    ConditionBreakpoint,
    LineBreakpoint,
    PlacedBreakpoint,
} from "./breakpoints.js";
export type { CancelOptions, CancelStatus, PlainCancelOptions } from "./CancelStatus.js";
export type { JsonObject, TextChunk, TextMessage } from "./checks.js";
export type { ApiVersion } from "./versions.js";
export { Client, type EvalOptions, type EvalResult, type FevalOptions } from "./Client.js";
export { ClientDebugger, type DebugFrame, type DebugVariable } from "./ClientDebugger.js";
export { ClientOutput, type ClientOutputOptions } from "./ClientOutput.js";
export { type ConnectOptions } from "./connect.js";
export { Connection, type AttachOptions, type ConnectionStatus } from "./Connection.js";
export type { Disposable } from "./Disposable.js";
export {
    AbortedError,
    ClosedError,
    ConnectionError,
    ProtocolError,
    RefusedError,
    UnsupportedError,
    YvmError,
    type StackFrame,
    type YvmFailure,
} from "./errors.js";
export type {
    DebuggerResumed,
    DebuggerStopped,
    EngineEvents,
    EventData,
    EventName,
    EventOf,
    InputRequest,
    PrintableError,
    Progress,
    PromptState,
    StopReason,
    StructuredOutput,
    WorkspaceChange,
} from "./events.js";
export { EventSubscription, type EventOptions } from "./EventSubscription.js";
export type {
    R22a0Breakpoint,
    R22a0Client,
    R22a0Debugger,
    R22a0FevalOptions,
    R22a0RequestFuture,
} from "./R22a0Client.js";
export { RequestFuture, type OutputTarget, type RequestOptions } from "./RequestFuture.js";
export type { DequeueMode, RunOptions, SinkTraits } from "./RunOptions.js";
export {
    decodeYda,
    encodeYda,
    ndarray,
    type NdArray,
    type NestedNumbers,
    type NumericKind,
    type YdaInput,
    type YdaValue,
} from "./yda.js";
