/** When a queued command may run. */
export type DequeueMode =
    | "DEQUEUE_AT_PPE"
    | "DEQUEUE_AT_PAUSE"
    | "DEQUEUE_AT_PROMPT"
    | "DEQUEUE_AT_NON_DEBUG_PROMPT"
    | "DEQUEUE_AT_DEBUG_PROMPT"
    | "DEQUEUE_AT_IDLE"
    | "DEQUEUE_AT_BOOTSTRAP";

/** What the destination of a command's text can do; what is left out has the engine's default. */
export interface SinkTraits {
    readonly supportsMore?: boolean;
    readonly supportsHotlinks?: boolean;
    readonly needsFormattingForDisplay?: boolean;
    readonly useDiary?: boolean;
    readonly useEcho?: boolean;
    readonly useLogging?: boolean;
}

/** How the engine runs one command. Every key may be left out; the names are those of the wire. */
export interface RunOptions {
    /** Default `DEQUEUE_AT_PROMPT`: when the engine has nothing else to run. */
    readonly dequeueMode?: DequeueMode;
    /** Commands of one queue run in order; the engine serves queues in turn. */
    readonly queueName?: string;
    /** What the command may do, e.g. `["input", "figures"]`; default everything. */
    readonly capabilitiesList?: readonly string[];
    readonly groupNames?: readonly string[];
    readonly suppressDebugControlOutput?: boolean;
    /** Lines of text that the reader sees at once. */
    readonly commandWindowRowSize?: number;
    /** Characters in a line of text. */
    readonly commandWindowColSize?: number;
    readonly outSinkTraits?: SinkTraits;
    readonly errSinkTraits?: SinkTraits;
    /** True drops the command's standard output. Default here: false, it comes with the request. */
    readonly useNullOutSink?: boolean;
    /** The same for standard error. */
    readonly useNullErrSink?: boolean;
}
