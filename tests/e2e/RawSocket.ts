import WebSocket from "ws";

import type { Message } from "./Driver.js";

/** A WebSocket on which a test writes what it likes. */
export class RawSocket {
    readonly #socket: WebSocket;
    readonly #received: Message[][] = [];
    #closed: number | undefined;
    #wake: () => void = () => undefined;

    private constructor(socket: WebSocket) {
        this.#socket = socket;
        socket.on("message", (text: Buffer) => {
            this.#received.push(JSON.parse(text.toString()) as Message[]);
            this.#wake();
        });
        socket.on("close", (code) => {
            this.#closed = code;
            this.#wake();
        });
    }

    /** Rejects when the upgrade is refused. */
    static open(endpoint: string, options: WebSocket.ClientOptions = {}): Promise<RawSocket> {
        const socket = new WebSocket(endpoint.replace("http", "ws"), options);
        return new Promise((resolve, reject) => {
            socket.on("open", () => {
                resolve(new RawSocket(socket));
            });
            socket.on("error", reject);
        });
    }

    /** Shakes hands with the token; resolves to the client id. Events come once it has connected as well. */
    async shakeHands(token: string): Promise<string> {
        const [reply] = (await this.ask(
            JSON.stringify([
                {
                    channel: "/meta/handshake",
                    id: "1",
                    version: "1.0",
                    supportedConnectionTypes: ["websocket"],
                    ext: { token },
                },
            ]),
        )) as Message[];
        if (reply?.successful !== true) {
            throw new Error(`the handshake failed: ${JSON.stringify(reply)}`);
        }
        return reply.clientId ?? "";
    }

    send(text: string | Buffer, binary = false): void {
        this.#socket.send(text, { binary });
    }

    /** The messages of the next frame, or the code with which the server closed. */
    async next(): Promise<Message[] | number> {
        for (;;) {
            const next = this.#received.shift();
            if (next !== undefined) {
                return next;
            }
            if (this.#closed !== undefined) {
                return this.#closed;
            }
            await new Promise<void>((resolve) => (this.#wake = resolve));
        }
    }

    /** Sends a text, and waits for what comes next. */
    ask(text: string | Buffer, binary = false): Promise<Message[] | number> {
        this.send(text, binary);
        return this.next();
    }

    /** Reads nothing more, until `resume`. */
    pause(): void {
        this.#socket.pause();
    }

    resume(): void {
        this.#socket.resume();
    }

    /** Closes as a peer does that means it. */
    close(): void {
        this.#socket.close();
    }

    /** Leaves without a word. */
    destroy(): void {
        this.#socket.terminate();
    }
}
