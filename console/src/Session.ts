import {
    connect,
    RefusedError,
    type Client,
    type Connection,
    type EvalResult,
    type RequestFuture,
    type TextChunk,
} from "yvm-client";

/** How the page stands with the server. */
export type SessionState =
    | { readonly kind: "connecting" }
    | { readonly kind: "attached" }
    /** The link is down, and is being restored. */
    | { readonly kind: "lost" }
    /** Over, until somebody connects again; with the reason, and whether another token would help. */
    | { readonly kind: "ended"; readonly reason: string; readonly wantsToken: boolean };

/** The page's connection and its one attached client. It knows nothing of the page. */
export class Session {
    readonly #url: string;
    readonly #onState: (state: SessionState) => void;
    #connection: Connection | undefined;
    #client: Client | undefined;

    constructor(url: string, onState: (state: SessionState) => void) {
        this.#url = url;
        this.#onState = onState;
    }

    /** Connects and attaches; may be called again once the session has ended. What happens is told by state. */
    async start(token: string | undefined): Promise<void> {
        this.#onState({ kind: "connecting" });
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
                    this.#onState({ kind: status.state === "lost" ? "lost" : "attached" });
                }
            });
            this.#client = await connection.attach();
            this.#onState({ kind: "attached" });
        } catch (error) {
            await this.#connection?.disconnect();
            this.#end(error);
        }
    }

    /**
     * Runs a command as one that a person typed.
     *
     * @throws Error if there is no attached client
     */
    run(command: string, onText: (chunk: TextChunk) => void): RequestFuture<EvalResult> {
        if (!this.#client) {
            throw new Error("not attached");
        }
        return this.#client.eval(command, { isUserEval: true, onText, keepText: false });
    }

    /** Says goodbye, so that the server need not wait for this page to come back. */
    stop(): void {
        void this.#connection?.disconnect();
    }

    #end(reason: unknown): void {
        this.#client = undefined;
        this.#connection = undefined;
        this.#onState({
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
