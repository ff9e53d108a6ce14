import { listenForAbort } from "./abort.js";
import type { JsonObject, TextChunk } from "./checks.js";
import { ClientOutput, type ClientOutputOptions } from "./ClientOutput.js";
import { AbortedError, ClosedError, ConnectionError } from "./errors.js";
import { handled } from "./handled.js";
import { Queue } from "./Queue.js";
import type { SinkTraits } from "./RunOptions.js";

/** What the sinks need of their client. */
export interface SinksHost {
    /** Sends a request to the sink service; `answered` settles as its answer says. */
    request(keys: JsonObject): { readonly requestID: string; readonly answered: Promise<unknown> };
    /** What cannot be done with these sinks, thrown if they are to be reverted. */
    requireRevert(): void;
    traits(traits: SinkTraits): JsonObject;
    /** Nobody reads any more. */
    released(): void;
    /** See `ClientHost`. */
    untilLinkIsBack(): Promise<void>;
}

interface Reader {
    readonly queue: Queue<TextChunk>;
    stopListening(): void;
}

interface Installation {
    /** The keys of its request. */
    readonly keys: JsonObject;
    readonly requestID: string;
    readonly installed: Promise<void>;
    readonly readers: Set<Reader>;
    /** Whether one of its readers, also of those that have left, wants the engine's own sinks back. */
    isToBeReverted: boolean;
}

/** The keys of a request that puts the engine's own sinks back. */
const revertKeys = { outSinkTraits: null, errSinkTraits: null };

/**
 * The client's sinks in the engine: installed for the first reader, reverted after the last. Requests of a
 * client keep their order, so that an install may follow a revert that has not been answered.
 */
export class ClientSinks {
    readonly #host: SinksHost;
    #installation: Installation | undefined;

    constructor(host: SinksHost) {
        this.#host = host;
    }

    /** @throws TypeError if other traits hold than those asked for */
    open({ traits, signal, revert = true }: ClientOutputOptions): ClientOutput {
        if (signal?.aborted === true) {
            return failed(new AbortedError(signal.reason));
        }
        if (revert) {
            try {
                this.#host.requireRevert();
            } catch (error) {
                return failed(error as Error);
            }
        }
        const queue = new Queue<TextChunk>();
        const keys = {
            ...(traits?.out && { outSinkTraits: this.#host.traits(traits.out) }),
            ...(traits?.err && { errSinkTraits: this.#host.traits(traits.err) }),
        };
        if (this.#installation && traits && !areEqual(keys, this.#installation.keys)) {
            throw new TypeError(
                `The client's text is being read with the traits ${JSON.stringify(this.#installation.keys)}; ` +
                    "other traits have to wait until nobody reads it",
            );
        }
        const installation = this.#installation ?? this.#install(keys);
        installation.isToBeReverted ||= revert;
        let abandon: (reason: Error) => void = () => undefined;
        const installed = new Promise<void>((resolve, reject) => {
            installation.installed.then(resolve, reject);
            abandon = reject;
        });
        const reader: Reader = {
            queue,
            stopListening: listenForAbort(signal, () => {
                const error = new AbortedError(signal?.reason);
                queue.end({ error });
                abandon(error);
                this.#leave(installation, reader).catch(() => undefined); // nobody is left to be told
            }),
        };
        installation.readers.add(reader);
        return new ClientOutput(handled(installed), queue, () => this.#leave(installation, reader));
    }

    /** Text of the sinks came. */
    onText(chunk: TextChunk): void {
        for (const { queue } of this.#installation?.readers ?? []) {
            queue.push(chunk);
        }
    }

    /** An error came for a request that was answered before: the service answers first and may fail then. */
    onLateError(requestID: string, error: Error): void {
        if (this.#installation?.requestID === requestID) {
            this.#fail(this.#installation, error);
        }
    }

    /**
     * The connection was lost, or the client is closed. Readers are told why, unless it was this side that
     * ended it. Sinks that are left behind are reverted when they can be reached.
     */
    end(reason: Error): void {
        const installation = this.#installation;
        if (installation) {
            this.#fail(installation, reason instanceof ClosedError ? undefined : reason);
            this.#revertAfterLoss(installation, reason);
        }
    }

    /** Sends the revert, if one is due, that must precede the end of the client. */
    revertBeforeDetach(): void {
        if (this.#installation?.isToBeReverted) {
            this.#host.request(revertKeys).answered.catch(() => undefined); // the client goes, and ends it
        }
    }

    #install(keys: JsonObject): Installation {
        const { requestID, answered } = this.#host.request(keys);
        const installation: Installation = {
            keys,
            requestID,
            installed: handled(
                answered.then(
                    () => undefined,
                    (error: unknown) => {
                        if (this.#installation === installation) {
                            this.#fail(installation, error as Error);
                            this.#revertAfterLoss(installation, error);
                        }
                        throw error;
                    },
                ),
            ),
            readers: new Set(),
            isToBeReverted: false,
        };
        this.#installation = installation;
        return installation;
    }

    /** Ends an installation and all its readers. */
    #fail(installation: Installation, error: Error | undefined): void {
        this.#installation = undefined;
        for (const reader of installation.readers) {
            reader.stopListening();
            reader.queue.end({ error });
        }
        installation.readers.clear();
        this.#host.released();
    }

    async #leave(installation: Installation, reader: Reader): Promise<void> {
        reader.stopListening();
        installation.readers.delete(reader);
        if (this.#installation !== installation || installation.readers.size > 0) {
            return;
        }
        this.#installation = undefined;
        this.#host.released();
        if (!installation.isToBeReverted) {
            return;
        }
        try {
            await this.#host.request(revertKeys).answered;
        } catch (error) {
            if (error instanceof ConnectionError) {
                void this.#revertLater();
            } else if (!(error instanceof ClosedError)) {
                throw error;
            }
        }
    }

    #revertAfterLoss(installation: Installation, reason: unknown): void {
        if (installation.isToBeReverted && reason instanceof ConnectionError) {
            void this.#revertLater();
        }
    }

    /**
     * Reverts sinks of which nobody knows whether they are installed, when the link is back. A revert that
     * finds none would install some, so that an install goes before it.
     */
    async #revertLater(): Promise<void> {
        for (;;) {
            try {
                await this.#host.untilLinkIsBack();
            } catch {
                return; // the session is gone, and its sinks with it
            }
            if (this.#installation) {
                return; // somebody has come who wants them
            }
            try {
                await Promise.all([this.#host.request({}).answered, this.#host.request(revertKeys).answered]);
                return;
            } catch (error) {
                if (!(error instanceof ConnectionError)) {
                    return; // the server's log has it; nobody is left to be told
                }
            }
        }
    }
}

function failed(error: Error): ClientOutput {
    const queue = new Queue<TextChunk>();
    queue.end({ error });
    return new ClientOutput(handled(Promise.reject(error)), queue, () => Promise.resolve());
}

function areEqual(one: JsonObject, other: JsonObject): boolean {
    const sorted = (keys: JsonObject) =>
        JSON.stringify(keys, (_key, value: unknown) =>
            typeof value === "object" && value !== null
                ? Object.fromEntries(Object.entries(value).sort(([a], [b]) => (a < b ? -1 : 1)))
                : value,
        );
    return sorted(one) === sorted(other);
}
