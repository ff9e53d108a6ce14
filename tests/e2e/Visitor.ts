import { request, type ClientRequest } from "node:http";

import type { Message } from "./Driver.js";
import { RawSocket } from "./RawSocket.js";

/** Thrown where the server has ended the session, or its connection. */
export class Ended extends Error {}

type Data = Readonly<Record<string, unknown>>;

/** A client by hand that can leave at any moment and in any manner. */
export abstract class Visitor {
    clientId: string | undefined;
    readonly #received: Message[] = [];
    #failure: Ended | undefined;
    #waiting: (() => void)[] = [];
    #lastId = 0;

    /** Sends a message, and does not wait. */
    abstract send(message: object): void;
    /** Has a connect with the server, if it can. */
    abstract connect(): void;
    /** Keeps its connections, and says nothing more. */
    abstract fallSilent(): void;
    /** Drops all connections without a word. */
    abstract destroy(): void;
    /** Drops all connections as politely as the transport can. */
    abstract close(): void;

    protected message(channel: string, fields: object): Message {
        this.#lastId += 1;
        return { channel, id: String(this.#lastId), clientId: this.clientId, ...fields } as Message;
    }

    protected receive(messages: readonly Message[]): void {
        this.#received.push(...messages);
        this.#wake();
    }

    /** Nothing more will come. */
    protected fail(why: string): void {
        this.#failure ??= new Ended(why);
        this.#wake();
    }

    #wake(): void {
        for (const wake of this.#waiting.splice(0)) {
            wake();
        }
    }

    async #find(isWanted: (message: Message) => boolean): Promise<Message> {
        for (;;) {
            const found = this.#received.find(isWanted);
            if (found) {
                return found;
            }
            if (this.#failure) {
                throw this.#failure;
            }
            await new Promise<void>((resolve) => this.#waiting.push(resolve));
        }
    }

    /** Sends a message and waits for the reply, which has to be a successful one. */
    async ask(channel: string, fields: object): Promise<Message> {
        const message = this.message(channel, fields);
        this.send(message);
        const reply = await this.#find(({ id, successful }) => id === message.id && successful !== undefined);
        if (!reply.successful) {
            throw new Ended(reply.error);
        }
        return reply;
    }

    async handshake(token: string): Promise<void> {
        const { clientId } = await this.ask("/meta/handshake", {
            supportedConnectionTypes: ["websocket", "long-polling"],
            ext: { token },
        });
        this.clientId = clientId;
    }

    /** Publishes a request, and waits for its response. */
    async request(channel: string, data: Data): Promise<void> {
        await this.ask(`${channel}/request`, { data });
        await this.#find(
            (message) =>
                message.channel === `${channel}/response` &&
                (message.data as Data)["requestID"] === data["requestID"],
        );
    }
}

export class SocketVisitor extends Visitor {
    readonly #socket: RawSocket;

    private constructor(socket: RawSocket) {
        super();
        this.#socket = socket;
        void this.#read();
    }

    static async open(endpoint: string): Promise<SocketVisitor> {
        return new SocketVisitor(await RawSocket.open(endpoint));
    }

    async #read(): Promise<void> {
        for (;;) {
            const frame = await this.#socket.next();
            if (typeof frame === "number") {
                this.fail(`closed with ${frame}`);
                return;
            }
            this.receive(frame);
        }
    }

    override send(message: object): void {
        this.#socket.send(JSON.stringify([message]));
    }

    override connect(): void {
        this.send(this.message("/meta/connect", { connectionType: "websocket" }));
    }

    /** It connected once, and does not do so again. */
    override fallSilent(): void {
        return;
    }

    override destroy(): void {
        this.#socket.destroy();
    }

    override close(): void {
        this.#socket.close();
    }
}

export class PollingVisitor extends Visitor {
    readonly #endpoint: string;
    readonly #requests = new Set<ClientRequest>();
    #isSilent = false;

    constructor(endpoint: string) {
        super();
        this.#endpoint = endpoint;
    }

    override send(message: object): void {
        this.#post(message, () => undefined);
    }

    /** Polls from then on. */
    override connect(): void {
        if (!this.#isSilent) {
            const message = this.message("/meta/connect", { connectionType: "long-polling" });
            this.#post(message, (replies) => {
                if (replies.some(({ channel, successful }) => channel === message.channel && successful)) {
                    this.connect();
                } else {
                    this.fail("the connect was refused");
                }
            });
        }
    }

    override fallSilent(): void {
        this.#isSilent = true;
    }

    override destroy(): void {
        this.#isSilent = true;
        for (const one of this.#requests) {
            one.destroy();
        }
    }

    override close(): void {
        this.destroy();
    }

    /** Begins a request, sends half of it, and is gone. */
    breakOff(): void {
        const half = request(this.#endpoint, {
            method: "POST",
            agent: false,
            headers: { "Content-Type": "application/json", "Content-Length": 1000 },
        });
        half.on("error", () => undefined);
        half.write('[{"channel":"/meta/', () => half.destroy());
        this.destroy();
    }

    #post(message: object, onReplies: (replies: Message[]) => void): void {
        // Without an agent each request has a connection of its own, which ends with it.
        const post = request(
            this.#endpoint,
            { method: "POST", agent: false, headers: { "Content-Type": "application/json" } },
            (response) => {
                let body = "";
                response.setEncoding("utf8");
                response.on("data", (text: string) => (body += text));
                response.on("error", ({ message: why }) => {
                    this.fail(why);
                });
                response.on("end", () => {
                    this.#requests.delete(post);
                    if (response.statusCode !== 200) {
                        this.fail(`status ${String(response.statusCode)}`);
                        return;
                    }
                    const replies = JSON.parse(body) as Message[];
                    this.receive(replies);
                    onReplies(replies);
                });
            },
        );
        this.#requests.add(post);
        post.on("error", ({ message: why }) => {
            this.fail(why);
        });
        post.end(JSON.stringify([message]));
    }
}
