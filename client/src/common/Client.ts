import { startAbortable, type AbortOptions } from "./abort.js";
import type { CancelOptions, CancelStatus, PlainCancelOptions } from "./CancelStatus.js";
import {
    asArray,
    asString,
    readResponse,
    readTextChunk,
    readTextMessage,
    type JsonObject,
    type TextMessage,
} from "./checks.js";
import type { ClientOutput, ClientOutputOptions } from "./ClientOutput.js";
import { ClientDebugger } from "./ClientDebugger.js";
import { ClientEvents, type RunConnections } from "./ClientEvents.js";
import { ClientSinks } from "./ClientSinks.js";
import type { Disposable } from "./Disposable.js";
import { AbortedError, ClosedError, ConnectionError, UnsupportedError, YvmError } from "./errors.js";
import { handled } from "./handled.js";
import type { EventName } from "./events.js";
import type { EventOptions, EventSubscription } from "./EventSubscription.js";
import {
    RequestFuture,
    type OutputTarget,
    type RequestDriver,
    type RequestOptions,
} from "./RequestFuture.js";
import type { RunOptions } from "./RunOptions.js";
import { dialects, type ApiVersion, type Dialect, type Feature } from "./versions.js";
import { decodeYda, type YdaInput, type YdaValue } from "./yda.js";

export interface EvalOptions<N extends EventName = never> extends RequestOptions<N> {
    /** Enter the command into the engine's history, as one that a person typed. Default false. */
    readonly isUserEval?: boolean;
    readonly runOptions?: RunOptions;
}

export interface FevalOptions<N extends EventName = never> extends RequestOptions<N> {
    /** How many outputs to ask for; 0 discards what the function returns. Default 1. */
    readonly numOutputs?: number;
    /** How the outputs travel. Both are decoded to the same values. Default "preferYDAShort". */
    readonly format?: "preferYDAShort" | "alwaysYDALong";
    readonly runOptions?: RunOptions;
}

/** What a successful command printed. */
export interface EvalResult {
    /** Text of both streams, in the order in which it was written. */
    readonly text: string;
    /** Text of standard output alone. */
    readonly stdout: string;
    /** Text of standard error alone. */
    readonly stderr: string;
}

/** What an attached client needs of its connection. */
export interface ClientHost {
    publish(channel: string, data: JsonObject): Promise<void>;
    /**
     * Resolves when a link that was lost is up again. Rejects if the server no longer knows the session,
     * which means that it has stopped all requests, and if the connection is closed.
     */
    untilLinkIsBack(): Promise<void>;
    /** Has the text of the sinks that all clients of r22a0 share come to this one, too. */
    readSharedSinks(client: Client): Promise<void>;
    leaveSharedSinks(client: Client): void;
    detach(client: Client): Promise<void>;
}

/** Installs the sinks that all clients of r22a0 share. Not answered. */
const sharedSinks = "/yvm/sinks/set";

/**
 * A client attached to the engine, made by `Connection.attach`. All clients of an engine share one
 * workspace; requests of one client are queued in the order of the calls.
 *
 * When the server has forgotten the session (it restarted, or this side was away for longer than the
 * server's grace time), open requests reject with ConnectionError, and the connection attaches the
 * client again under the same identifier.
 */
export class Client {
    /** The identifier of the attach. */
    readonly requestID: string;
    /** The protocol version agreed on. */
    readonly apiVersion: ApiVersion;
    /** The channels of this client all start with this, e.g. `/yvm/abc`. */
    readonly channelPrefix: string;
    /** The engine's debugger. */
    readonly debugger: ClientDebugger;
    readonly #host: ClientHost;
    readonly #dialect: Dialect;
    readonly #open = new Map<string, RequestDriver>();
    readonly #sinks: ClientSinks;
    readonly #events: ClientEvents;
    readonly #lateTextListeners = new Set<(message: TextMessage) => void>();
    #requestCount = 0;
    #closed: Error | undefined;

    /** @internal Use `Connection.attach`. */
    constructor(requestID: string, apiVersion: ApiVersion, channelPrefix: string, host: ClientHost) {
        this.requestID = requestID;
        this.apiVersion = apiVersion;
        this.channelPrefix = channelPrefix;
        this.#host = host;
        const dialect = dialects[apiVersion];
        this.#dialect = dialect;
        const isShared = dialect.lacks.has("revertSinks");
        this.#sinks = new ClientSinks({
            request: isShared
                ? (keys) => ({ requestID: "", answered: this.#setSharedSinks(keys) })
                : (keys) => this.#request("/yvmSinks", keys),
            requireRevert: () => {
                this.#require("revertSinks", "way back to the engine's own sinks: say revert: false");
            },
            traits: (traits) => dialect.traits(traits),
            released: () => {
                if (isShared) {
                    host.leaveSharedSinks(this);
                }
            },
            untilLinkIsBack: () => host.untilLinkIsBack(),
        });
        this.debugger = new ClientDebugger({
            require: (feature, what) => {
                this.#require(feature, what);
            },
            request: (channel, keys) => this.#request(channel, keys),
            eval: (command, options) => this.eval(command, options),
            feval: (name, args, options) => this.feval(name, args, options),
        });
        this.#events = new ClientEvents({
            newIdentifier: () => this.#newRequestID(),
            request: (channel, keys) => this.#request(channel, keys),
            untilLinkIsBack: () => host.untilLinkIsBack(),
        });
    }

    /**
     * Evaluates a command: Python source, of which the value of a last bare expression is displayed,
     * unless the text ends in a semicolon.
     */
    eval<N extends EventName = never>(
        command: string,
        options: EvalOptions<N> = {},
    ): RequestFuture<EvalResult, N> {
        return this.#send(
            "/eval",
            { command, isUserEval: options.isUserEval ?? false },
            options,
            (_body, future) => ({ text: future.text, stdout: future.textOf(0), stderr: future.textOf(1) }),
        );
    }

    /**
     * Calls a function by its name, which is looked up in the workspace, then among the builtins, then
     * as a dotted import, e.g. `numpy.linalg.svd`.
     *
     * @param args inputs, see `YdaInput` for what each JavaScript type becomes
     * @returns the outputs, in order
     * @throws TypeError or RangeError at once, if an argument has no counterpart in the engine;
     * UnsupportedError with r22a0, if one holds integers beyond 2^53, or a record whose member `ywtype` would be
     * taken for the kind of an array
     */
    feval<N extends EventName = never>(
        name: string,
        args: readonly YdaInput[] = [],
        options: FevalOptions<N> = {},
    ): RequestFuture<YdaValue[], N> {
        return this.#send(
            "/feval",
            {
                function: name,
                numOutputsExpected: options.numOutputs ?? 1,
                rhsArgs: args.map((value) => this.#dialect.encodeArgument(value)),
                ydaOutputFormat: options.format ?? "preferYDAShort",
            },
            options,
            (body) => asArray(body["result"], "result").map(decodeYda),
        );
    }

    /**
     * Asks the engine to stop one request of this client, and tells what became of it. See
     * `RequestFuture.cancel`, which is the same.
     *
     * The answer comes when the request has really stopped. A command that cannot be interrupted puts it off.
     *
     * @throws UnsupportedError with r22a0, unless the options say `status: false`; its answer comes at once
     */
    cancel(requestID: string, options?: CancelOptions): Promise<CancelStatus>;
    cancel(requestID: string, options: PlainCancelOptions): Promise<undefined>;
    async cancel(
        requestID: string,
        { interrupt = false, status = true, signal }: CancelOptions | PlainCancelOptions = {},
    ): Promise<CancelStatus | undefined> {
        if (status) {
            this.#require("cancelStatus", "status of cancelled requests: say status: false");
        }
        const body = await this.#ask("/cancel", { requestIDtoCancel: requestID, interrupt }, signal);
        return status ? asString(body["cancelStatus"], "cancelStatus") : undefined;
    }

    /**
     * Stops all requests whose run options name the group in `groupNames`, those of other clients too. Each
     * of them settles by its own answer. Resolves when the engine was asked, whether there were any or not.
     *
     * @throws UnsupportedError with r22a0
     */
    async cancelGroup(name: string, { interrupt = false, signal }: CancelOptions = {}): Promise<void> {
        this.#require("cancelGroup", "cancelGroup");
        await this.#ask("/cancelGroup", { requestGroupNametoCancel: name, interrupt }, signal);
    }

    /**
     * Interrupts the command that the engine runs, whoever sent it; what waits is not touched. Resolves when
     * the engine was asked, whether it runs something or not. The signal ends the wait for that.
     *
     * @throws UnsupportedError with r22a0
     */
    async interrupt({ signal }: AbortOptions = {}): Promise<void> {
        this.#require("interrupt", "interrupt");
        await this.#ask("/interrupt", {}, signal);
    }

    /**
     * Reads the engine's client-wide text: of programs that run without a command, and of commands, any
     * client's, whose text was not asked for. The engine sends it to one client at a time, the last that
     * asked, until that client ends it; then to its own console again.
     *
     * It begins with the call: of what is sent after it, nothing is missed. Any number may read at the same
     * time. What has not been read yet waits without bound. When the last reader ends, text that the engine
     * has not sent yet is dropped.
     *
     * Clients of r22a0 share one pair of sinks: each that reads gets all of the text. They cannot be put back,
     * which has to be agreed to by `revert: false`.
     *
     * @throws TypeError if it is being read with other traits
     */
    output(options: ClientOutputOptions = {}): ClientOutput {
        return this.#sinks.open(options);
    }

    /**
     * Reads the engine's events of one type, whichever client's command causes them. For those of one command
     * alone, see the option `events` of `eval` and `feval`.
     *
     * It begins with the call: of what is sent after it, nothing is missed but what the loop is too slow for.
     * Any number may read at the same time.
     */
    events<N extends EventName>(name: N, options: EventOptions = {}): EventSubscription<N> {
        return this.#events.subscribe(name, options);
    }

    /**
     * Replies to an `InputRequest`, with a line without its end, or with null, which is the end of the input.
     * The first answer counts.
     *
     * @throws YvmError if the request was answered before, or its command no longer waits for it
     */
    async answer(id: string, text: string | null): Promise<void> {
        await this.feval("yvm.answer", [id, text], {
            numOutputs: 0,
            output: "none",
            runOptions: { dequeueMode: "DEQUEUE_AT_PPE" },
        });
    }

    /**
     * Calls the listener with text of requests that have settled: of threads that a command has started and
     * that live on, and of what was aborted and has not stopped yet. Nobody else is given it.
     */
    onLateText(listener: (message: TextMessage) => void): Disposable {
        this.#lateTextListeners.add(listener);
        return { dispose: () => this.#lateTextListeners.delete(listener) };
    }

    /** Leaves the engine. Open requests are cancelled there and reject with ClosedError here. */
    detach(): Promise<void> {
        this.#sinks.revertBeforeDetach();
        return this.#host.detach(this);
    }

    /** @internal A message on a channel below the prefix; throws ProtocolError. */
    handleMessage(channel: string, data: unknown): void {
        const suffix = channel.slice(this.channelPrefix.length);
        if (this.#dialect.textChannels.includes(suffix)) {
            this.#onText(readTextMessage(data, channel));
            return;
        }
        switch (suffix) {
            case "/yvmSinks/output":
                this.#sinks.onText(readTextChunk(data, channel));
                break;
            case "/event/fireEvent":
                this.#events.onEvent(data, channel);
                break;
            case "/eval/response":
            case "/feval/response":
            case "/cancel/response":
            case "/cancelGroup/response":
            case "/interrupt/response":
            case "/subscribeEvent/response":
            case "/disconnectEvent/response":
            case "/setGlobalBreakpoint/response":
            case "/clearGlobalBreakpoint/response":
            case "/setLineBreakpoint/response":
            case "/clearLineBreakpoint/response":
            case "/clearAllBreakpoints/response":
            case "/breakInDebugger/response":
            case "/yvmSinks/response": {
                const response = readResponse(data, channel);
                const request = this.#open.get(response.requestID);
                if (request === undefined || suffix !== `${request.channel}/response`) {
                    if (suffix === "/yvmSinks/response" && response.error) {
                        this.#sinks.onLateError(response.requestID, new YvmError(response.error));
                    }
                    break; // of a request that was aborted, or given up when the connection was lost
                }
                this.#open.delete(response.requestID);
                if (response.error) {
                    request.fail(new YvmError(response.error));
                } else {
                    request.respond(response.body);
                }
                break;
            }
            default: // channels of later protocol additions
                break;
        }
    }

    /** @internal Text of the sinks that all clients of r22a0 share; throws ProtocolError. */
    handleSharedText(channel: string, data: unknown): void {
        this.#sinks.onText(readTextChunk(data, channel));
    }

    /** @internal Rejects everything that is open; new requests are still taken. */
    failOpenRequests(reason: Error): void {
        this.#sinks.end(reason);
        const requests = [...this.#open.values()];
        this.#open.clear();
        for (const request of requests) {
            request.fail(reason);
        }
    }

    /** @internal The server has forgotten the session: everything that is open ends; new requests are taken. */
    endSession(reason: Error): void {
        this.#events.end(reason); // first, so that nothing is freed which is no longer there
        this.failOpenRequests(reason);
    }

    /** @internal The end: open and later requests reject with the reason. */
    close(reason: Error): void {
        this.#closed ??= reason;
        this.endSession(reason);
    }

    /** Why the client takes no more requests; undefined while it does. */
    get closed(): Error | undefined {
        return this.#closed;
    }

    #onText(message: TextMessage): void {
        const request = this.#open.get(message.requestID);
        if (request) {
            request.pushText({ stream: message.stream, text: message.text });
        } else {
            this.#tellLateText(message);
        }
    }

    #tellLateText(message: TextMessage): void {
        for (const listener of [...this.#lateTextListeners]) {
            try {
                listener(message);
            } catch (error) {
                // The application's own failure is not the connection's.
                setTimeout(() => {
                    throw error;
                });
            }
        }
    }

    #send<T, N extends EventName>(
        channel: string,
        keys: JsonObject,
        options: RequestOptions<N> & { readonly runOptions?: RunOptions },
        readResult: (body: JsonObject, future: RequestFuture<T, N>) => T,
    ): RequestFuture<T, N> {
        const requestID = this.#newRequestID();
        const { signal, ...rest } = options;
        const isAborted = signal?.aborted === true;
        let connections: RunConnections | undefined;
        return new RequestFuture<T, N>(
            requestID,
            channel,
            isAborted ? rest : options,
            {
                cancel: (cancelOptions) => this.cancel(requestID, cancelOptions as CancelOptions),
                abort: (driver, reason) => {
                    this.#open.delete(requestID);
                    driver.fail(new AbortedError(reason, this.#cancelAborted(requestID)));
                },
                settled: () => connections?.free(),
            },
            readResult,
            (driver) => {
                if (isAborted) {
                    driver.fail(new AbortedError(signal.reason));
                } else {
                    if (options.events && options.events.length > 0) {
                        connections = this.#events.openRun(options.events, driver);
                    }
                    const runOptions = {
                        ...this.#dialect.runOptions(withText(options)),
                        ...(connections && { eventConnections: connections.eventConnections }),
                    };
                    this.#publish(requestID, { ...keys, runOptions }, driver);
                }
            },
        );
    }

    /** A request without text, given its keys; `answered` resolves to the body of the answer. */
    #request(channel: string, keys: JsonObject): { requestID: string; answered: Promise<JsonObject> } {
        const requestID = this.#newRequestID();
        const answered = new Promise<JsonObject>((respond, fail) => {
            this.#publish(requestID, keys, {
                channel,
                pushText: () => undefined,
                pushEvent: () => undefined,
                respond,
                fail,
            });
        });
        return { requestID, answered };
    }

    /** The body of the answer to a request of which the signal ends the wait, and nothing else. */
    #ask(channel: string, keys: JsonObject, signal: AbortSignal | undefined): Promise<JsonObject> {
        return startAbortable(
            signal,
            () => this.#request(channel, keys).answered,
            () => undefined,
        );
    }

    #newRequestID(): string {
        return String(++this.#requestCount);
    }

    #publish(requestID: string, keys: JsonObject, driver: RequestDriver): void {
        if (this.#closed) {
            driver.fail(new ClosedError("The client is detached", { cause: this.#closed }));
            return;
        }
        this.#open.set(requestID, driver);
        this.#host
            .publish(`${this.channelPrefix}${driver.channel}/request`, { requestID, ...keys })
            .catch((error: unknown) => {
                this.#open.delete(requestID);
                driver.fail(error as Error);
            });
    }

    /** @throws UnsupportedError if the version lacks the feature, of which `what` tells the reader */
    #require(feature: Feature, what: string): void {
        if (this.#dialect.lacks.has(feature)) {
            throw new UnsupportedError(this.apiVersion, what);
        }
    }

    /** Resolves when the server took the request: no answer follows. */
    async #setSharedSinks(keys: JsonObject): Promise<void> {
        if (this.#closed) {
            throw new ClosedError("The client is detached", { cause: this.#closed });
        }
        // The subscription goes first, but nobody waits for it in between: what is sent next keeps its place.
        await Promise.all([this.#host.readSharedSinks(this), this.#host.publish(sharedSinks, keys)]);
    }

    /** @returns what became of the request, if the version tells */
    #cancelAborted(requestID: string): Promise<CancelStatus> | undefined {
        if (this.#dialect.lacks.has("cancelStatus")) {
            void handled(this.#untilSent(() => this.cancel(requestID, { interrupt: true, status: false })));
            return undefined;
        }
        return this.#untilSent(() => this.cancel(requestID, { interrupt: true }));
    }

    /** Whoever aborted a request no longer looks after it, so a cancel that was lost is sent again. */
    async #untilSent<T>(cancel: () => Promise<T>): Promise<T> {
        for (;;) {
            try {
                return await cancel();
            } catch (error) {
                if (!(error instanceof ConnectionError)) {
                    throw error;
                }
                await this.#host.untilLinkIsBack();
            }
        }
    }
}

interface TextOptions {
    readonly output?: OutputTarget | undefined;
    readonly runOptions?: RunOptions;
}

/** Run options that send the text where the caller wants it. */
function withText({ output = "keep", runOptions }: TextOptions): RunOptions {
    const isDropped = output === "none";
    return {
        ...(output !== "client" && { useNullOutSink: isDropped, useNullErrSink: isDropped }),
        ...runOptions,
    };
}
