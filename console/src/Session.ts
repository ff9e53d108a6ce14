import {
    ClosedError,
    connect,
    ConnectionError,
    RefusedError,
    type Breakpoints,
    type Client,
    type ClientDebugger,
    type ClientOutput,
    type Connection,
    type DebuggerResumed,
    type DebuggerStopped,
    type EvalResult,
    type EventData,
    type EventName,
    type EventOf,
    type EventSubscription,
    type PromptState,
    type RequestFuture,
    type TextChunk,
    type TextMessage,
    type WorkspaceChange,
    type YdaValue,
} from "yvm-client";

import type { LineMark } from "./BreakpointLines";
import type { Listing } from "./CommandTracker";

/** Answered while another command runs, and without text. */
const queryOptions = {
    output: "none",
    runOptions: { dequeueMode: "DEQUEUE_AT_PPE" },
} as const;

/** What the page shows of its own commands beside their text. */
const runEvents = [
    "ylutil::io::StructuredOutputEvent",
    "yvm::ProgressEvent",
    "services::prompt::InputRequestEvent",
    "ylutil::prompt::PromptEvent",
    "services::io::CLCEvent",
    "services::io::HomeEvent",
] as const;

export type RunEvent = EventOf<(typeof runEvents)[number]>;

/** What a command tells while it runs, in its order. */
export interface RunEvents {
    onText(chunk: TextChunk): void;
    onEvent(event: RunEvent): void;
}

/** A variable of the workspace. */
export interface Variable {
    readonly name: string;
    readonly type: string;
    /** Extents of an array, otherwise empty. */
    readonly shape: readonly number[];
    readonly bytes: number;
    readonly isCallable: boolean;
}

/** How the page stands with the server. */
export type SessionState =
    | { readonly kind: "connecting" }
    | { readonly kind: "attached" }
    /** The link is down, and is being restored. */
    | { readonly kind: "lost" }
    /** Over, until somebody connects again; with the reason, and whether another token would help. */
    | { readonly kind: "ended"; readonly reason: string; readonly wantsToken: boolean };

/** What a session tells. */
export interface SessionEvents {
    onState(state: SessionState): void;
    /** Text of a command that has ended: of a thread that it has started. */
    onLateText(message: TextMessage): void;
    /** Text that belongs to no command of this page, while it is wanted. */
    onEngineText(chunk: TextChunk): void;
    /** That text comes no more. */
    onEngineTextFailed(error: Error): void;
    /** The engine does something else now. */
    onPrompt(state: PromptState["state"]): void;
    onWorkspace(change: WorkspaceChange): void;
    onStopped(stop: DebuggerStopped): void;
    onResumed(resume: DebuggerResumed): void;
    onBreakpoints(breakpoints: Breakpoints["breakpoints"]): void;
}

/** The page's connection and its one attached client. It knows nothing of the page. */
export class Session {
    readonly #url: string;
    readonly #events: SessionEvents;
    #connection: Connection | undefined;
    #client: Client | undefined;
    #wantsEngineText = false;
    #engineText: ClientOutput | undefined;
    /** The subscriptions that live, by the names of their events. */
    readonly #subscriptions = new Map<string, EventSubscription<EventName>>();

    constructor(url: string, events: SessionEvents) {
        this.#url = url;
        this.#events = events;
    }

    /** Whether to read the engine's client-wide text, which this page then takes from whoever had it. */
    set wantsEngineText(value: boolean) {
        this.#wantsEngineText = value;
        this.#readEngineText();
    }

    /** Connects and attaches; may be called again once the session has ended. What happens is told by state. */
    async start(token: string | undefined): Promise<void> {
        this.#events.onState({ kind: "connecting" });
        try {
            const connection = await connect(this.#url, { token });
            this.#connection = connection;
            connection.onStatus((status) => {
                if (status.state === "closed") {
                    this.#end(status.reason);
                } else if (this.#client?.closed) {
                    // The connection is back, but the engine did not take the client back.
                    this.#end(this.#client.closed);
                } else {
                    this.#events.onState({ kind: status.state === "lost" ? "lost" : "attached" });
                    this.#readAll();
                }
            });
            this.#client = await connection.attach();
            this.#client.onLateText((message) => {
                this.#events.onLateText(message);
            });
            this.#events.onState({ kind: "attached" });
            this.#readAll();
        } catch (error) {
            await this.#connection?.disconnect();
            this.#end(error);
        }
    }

    /**
     * Runs a command as one that a person typed.
     *
     * @param columns how many characters of its output fit into a line
     * @param told is given its text and what else it tells
     * @throws Error if there is no attached client
     */
    run(command: string, columns: number, told: RunEvents): RequestFuture<EvalResult, RunEvent["name"]> {
        return this.#attached().eval(command, {
            isUserEval: true,
            onText: (chunk) => {
                told.onText(chunk);
            },
            events: runEvents,
            onEvent: (event) => {
                told.onEvent(event);
            },
            output: "stream",
            // Where it stops is shown beside the text.
            runOptions: { commandWindowColSize: columns, suppressDebugControlOutput: true },
        });
    }

    /** @throws Error if there is no attached client */
    get debugger(): ClientDebugger {
        return this.#attached().debugger;
    }

    /** Has the engine name a command that is to be run next; the file name by which breakpoints and frames mean it. */
    async nameCommand(command: string): Promise<string> {
        const [fileName] = await this.#attached().feval("yvm.debug.name_command", [command], queryOptions);
        if (typeof fileName !== "string") {
            throw new Error("the engine does not name the command");
        }
        return fileName;
    }

    /** Sets breakpoints on lines of a file. */
    async setBreakpoints(fileName: string, marks: readonly LineMark[]): Promise<void> {
        await Promise.all(
            marks.map(({ line, condition }) =>
                this.debugger.setBreakpoint({
                    fileName,
                    location: { lineNumber: line },
                    ...(condition !== "" && { expression: condition }),
                }),
            ),
        );
    }

    /** Replies to a command that asks for a line; null is the end of the input. */
    answer(id: string, line: string | null): Promise<void> {
        return this.#attached().answer(id, line);
    }

    /** The variables of the workspace, by name. Answered while a command runs, as all queries are. */
    async listVariables(): Promise<Variable[]> {
        const [variables] = await this.#attached().feval("yvm.who", [], queryOptions);
        return asList(variables).map(asVariable);
    }

    /** The start of the text that stands for a variable, or undefined if there is none of this name. */
    async describe(name: string): Promise<string | undefined> {
        const [found] = await this.#attached().feval("yvm.inspect", [name], queryOptions);
        const text = isRecord(found) ? found["text"] : undefined;
        return typeof text === "string" ? text : undefined;
    }

    /** Asks what the engine runs and what waits. Answered while a command runs, if it is not one long call. */
    async listCommands(): Promise<Listing> {
        const client = this.#attached();
        const [running, [waiting]] = await Promise.all([
            this.#listRunning(client),
            client.feval("yvm.queue", [], queryOptions),
        ]);
        return { running, waiting: asListOfTexts(waiting) };
    }

    /** The engine's identifier of this query itself, to compare those of commands with. */
    async mark(): Promise<string> {
        return (await this.#listRunning(this.#attached())).at(-1) ?? "";
    }

    /** Interrupts what the engine runs, whoever sent it. */
    async interrupt(): Promise<void> {
        await this.#attached().interrupt();
    }

    /** Says goodbye, so that the server need not wait for this page to come back. */
    stop(): void {
        void this.#connection?.disconnect();
    }

    /** What runs, outermost first; this query is the last. */
    async #listRunning(client: Client): Promise<readonly string[]> {
        const [state] = await client.feval("yvm.state", [], queryOptions);
        return asListOfTexts(isRecord(state) ? state["running"] : undefined);
    }

    #attached(): Client {
        if (!this.#client) {
            throw new Error("not attached");
        }
        return this.#client;
    }

    /** Begins to read whatever is not being read. */
    #readAll(): void {
        this.#readEngineText();
        this.#readEvents("ylutil::prompt::PromptEvent", ({ state }) => {
            this.#events.onPrompt(state);
        });
        this.#readEvents("yvm::WorkspaceEvent", (change) => {
            this.#events.onWorkspace(change);
        });
        this.#readEvents("yvm::DebuggerStoppedEvent", (stop) => {
            this.#events.onStopped(stop);
        });
        this.#readEvents("yvm::DebuggerResumedEvent", (resume) => {
            this.#events.onResumed(resume);
        });
        this.#readEvents("yvm::BreakpointsChangedEvent", ({ breakpoints }) => {
            this.#events.onBreakpoints(breakpoints);
        });
        void this.#tellPrompt();
        void this.#tellBreakpoints();
    }

    /** Tells which breakpoints there are. */
    async #tellBreakpoints(): Promise<void> {
        try {
            this.#events.onBreakpoints(await this.debugger.breakpoints());
        } catch {
            // As of the prompt.
        }
    }

    /** Tells what the engine does now. Events that tell more come behind the answer. */
    async #tellPrompt(): Promise<void> {
        try {
            const [state] = await this.#attached().feval("yvm.state", [], queryOptions);
            const prompt = isRecord(state) ? state["prompt"] : undefined;
            if (prompt === "busy" || prompt === "idle" || prompt === "paused" || prompt === "debug") {
                this.#events.onPrompt(prompt);
            }
        } catch {
            // The link is lost, or somebody has interrupted the query: the next event tells.
        }
    }

    #readEvents<N extends EventName>(name: N, onEvent: (data: EventData<N>) => void): void {
        if (this.#client && !this.#subscriptions.has(name) && this.#isConnected()) {
            const subscription = this.#client.events(name);
            this.#subscriptions.set(name, subscription);
            void this.#readSubscription(name, subscription, onEvent);
        }
    }

    async #readSubscription<N extends EventName>(
        name: N,
        subscription: EventSubscription<N>,
        onEvent: (data: EventData<N>) => void,
    ): Promise<void> {
        try {
            for await (const data of subscription) {
                onEvent(data);
            }
        } catch (error) {
            // With the connection the reading begins again.
            if (!(error instanceof ConnectionError)) {
                reportError(error);
            }
        }
        if (this.#subscriptions.get(name) === subscription) {
            this.#subscriptions.delete(name);
        }
    }

    #isConnected(): boolean {
        return this.#connection?.status.state === "connected";
    }

    /** Begins or ends the reading, as it is wanted and possible. */
    #readEngineText(): void {
        if (!this.#wantsEngineText) {
            this.#engineText?.close().catch((error: unknown) => {
                this.#events.onEngineTextFailed(error as Error);
            });
            this.#engineText = undefined;
        } else if (!this.#engineText && this.#client && this.#isConnected()) {
            void this.#readOutput((this.#engineText = this.#client.output()));
        }
    }

    async #readOutput(output: ClientOutput): Promise<void> {
        try {
            for await (const chunk of output) {
                this.#events.onEngineText(chunk);
            }
        } catch (error) {
            // What happens to the connection is told by the state, and the reading begins again with it.
            if (!(error instanceof ConnectionError || error instanceof ClosedError)) {
                this.#events.onEngineTextFailed(error as Error);
            }
        }
        if (this.#engineText === output) {
            this.#engineText = undefined;
        }
    }

    #end(reason: unknown): void {
        this.#client = undefined;
        this.#connection = undefined;
        this.#subscriptions.clear();
        this.#events.onState({
            kind: "ended",
            reason:
                reason instanceof RefusedError
                    ? `The server refused the connection: ${reason.reason}`
                    : reason instanceof Error
                      ? reason.message
                      : String(reason),
            wantsToken: reason instanceof RefusedError && reason.code === 401,
        });
    }
}

function isRecord(value: YdaValue | undefined): value is { readonly [key: string]: YdaValue } {
    return typeof value === "object" && value !== null && !Array.isArray(value);
}

function asList(value: YdaValue | undefined): readonly YdaValue[] {
    if (!Array.isArray(value)) {
        throw new Error("the engine does not tell its variables");
    }
    return value as readonly YdaValue[];
}

function asVariable(value: YdaValue): Variable {
    const { name, type, shape, bytes, callable } = isRecord(value) ? value : {};
    if (typeof name !== "string" || typeof type !== "string") {
        throw new Error("the engine does not tell its variables");
    }
    return {
        name,
        type,
        shape: Array.isArray(shape) ? shape.map(Number) : [],
        bytes: Number(bytes),
        isCallable: callable === true,
    };
}

function asListOfTexts(value: YdaValue | undefined): readonly string[] {
    if (!Array.isArray(value) || !value.every((item) => typeof item === "string")) {
        throw new Error("the engine does not tell what it runs");
    }
    return value;
}
