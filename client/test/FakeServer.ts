import { createServer, type Server } from "node:http";
import type { AddressInfo } from "node:net";

import { WebSocketServer, type WebSocket } from "ws";

interface Message {
    channel: string;
    id?: string;
    clientId?: string;
    data?: Record<string, unknown>;
    subscription?: string;
    advice?: { timeout?: number };
    ext?: { token?: string };
}

/**
 * A Bayeux server of the smallest kind, over a real WebSocket, that behaves as a test tells it to. It
 * records what clients publish, and delivers what the test pushes.
 */
export class FakeServer {
    /** Refuses handshakes with another token. */
    token = "secret";
    /** The version that attaches are answered with. */
    apiVersion = "r24a0";
    /** Publishes in the order of arrival. */
    readonly published: { channel: string; data: Record<string, unknown> }[] = [];
    /** Subscriptions in the order of arrival, those of all sessions. */
    readonly subscribed: string[] = [];
    readonly unsubscribed: string[] = [];
    /** How many handshakes have arrived. */
    handshakes = 0;
    /** Error texts of publishes and subscriptions that are to be refused, by channel. */
    readonly refusals = new Map<string, string>();
    /** Channels on which nothing is answered. */
    readonly muted = new Set<string>();
    /** Answers the attaches and detaches as a healthy server does; a test may put its own here. */
    onPublish: (channel: string, data: Record<string, unknown>) => void = (channel, data) => {
        this.answerAttach(channel, data);
    };
    #http: Server | undefined;
    #sockets = new WebSocketServer({ noServer: true });
    #sessions = new Set<string>();
    #sessionCount = 0;
    #held: { socket: WebSocket; id: string | undefined } | undefined;
    #waiters: (() => void)[] = [];

    static async start(): Promise<FakeServer> {
        const server = new FakeServer();
        const http = createServer((_request, response) => response.writeHead(501).end());
        http.on("upgrade", (request, socket, head) => {
            server.#sockets.handleUpgrade(request, socket, head, (webSocket) => {
                webSocket.on("message", (text: Buffer) => {
                    for (const message of JSON.parse(text.toString()) as Message[]) {
                        server.#onMessage(webSocket, message);
                    }
                });
            });
        });
        await new Promise<void>((resolve) => http.listen(0, "127.0.0.1", resolve));
        server.#http = http;
        return server;
    }

    get url(): string {
        const { port } = this.#http?.address() as AddressInfo;
        return `http://127.0.0.1:${port}/`;
    }

    /** Delivers an event to the client. */
    push(channel: string, data: unknown): void {
        for (const socket of this.#sockets.clients) {
            send(socket, { channel, data });
        }
    }

    /** Answers attach and detach requests, and nothing else. */
    answerAttach(channel: string, data: Record<string, unknown>): void {
        const { requestID } = data;
        if (channel === "/yvm/attach/request") {
            const channelPrefix = `/yvm/${requestID as string}`;
            this.push("/yvm/attach/response", {
                requestID,
                apiVersion: this.apiVersion,
                channelPrefix,
            });
        } else if (channel === "/yvm/detach/request") {
            this.push("/yvm/detach/response", { requestID });
        }
    }

    /** Resolves once the condition holds; it is looked at after each message. */
    async until(condition: () => boolean): Promise<void> {
        while (!condition()) {
            await new Promise<void>((resolve) => this.#waiters.push(resolve));
        }
    }

    /** Waits for the nth publish on a channel, counted from 1, and returns its data. */
    async publishOn(channel: string, count = 1): Promise<Record<string, unknown>> {
        const found = () => this.published.filter((publish) => publish.channel === channel);
        await this.until(() => found().length >= count);
        return found()[count - 1]?.data ?? {};
    }

    /** Cuts all sockets, as a broken network does, once a connect is held that tells the client of it. */
    async cutSockets(): Promise<void> {
        await this.until(() => this.#held !== undefined);
        this.#terminateSockets();
    }

    /** Forgets all sessions, as a restarted server does. */
    forgetSessions(): void {
        this.#sessions.clear();
    }

    /** Ends the session and tells the client not to come back. */
    async endSession(error: string): Promise<void> {
        await this.until(() => this.#held !== undefined);
        const { socket, id } = this.#held ?? {};
        if (socket) {
            const advice = { reconnect: "none" };
            send(socket, { channel: "/meta/connect", id, successful: false, error, advice });
        }
    }

    async stop(): Promise<void> {
        this.#terminateSockets();
        await new Promise<void>((resolve) => {
            this.#http?.close(() => {
                resolve();
            });
        });
    }

    #terminateSockets(): void {
        for (const socket of this.#sockets.clients) {
            socket.terminate();
        }
    }

    #onMessage(socket: WebSocket, message: Message): void {
        const { channel, id, clientId = "" } = message;
        const reply = (fields: Record<string, unknown>) => {
            if (!this.muted.has(channel)) {
                send(socket, { channel, id, ...fields });
            }
        };
        if (channel === "/meta/handshake") {
            this.handshakes += 1;
            if (message.ext?.token !== this.token) {
                reply({ successful: false, error: "401::wrong token", advice: { reconnect: "none" } });
                return;
            }
            this.#sessionCount += 1;
            const session = `session${this.#sessionCount}`;
            this.#sessions.add(session);
            reply({
                successful: true,
                version: "1.0",
                supportedConnectionTypes: ["websocket"],
                clientId: session,
                advice: { reconnect: "retry", interval: 0, timeout: 30000 },
            });
        } else if (!this.#sessions.has(clientId)) {
            reply({
                successful: false,
                error: "402::Unknown client",
                ...(channel === "/meta/connect" && { advice: { reconnect: "handshake", interval: 0 } }),
            });
        } else if (channel === "/meta/connect") {
            if (message.advice?.timeout === 0) {
                reply({ successful: true, advice: { reconnect: "retry", interval: 0, timeout: 30000 } });
            } else {
                this.#held = { socket, id };
            }
        } else if (channel === "/meta/disconnect") {
            if (this.#held) {
                send(this.#held.socket, {
                    channel: "/meta/connect",
                    id: this.#held.id,
                    successful: true,
                    advice: { reconnect: "none" },
                });
            }
            reply({ successful: true });
        } else if (channel === "/meta/subscribe" || channel === "/meta/unsubscribe") {
            const { subscription = "" } = message;
            const error = channel === "/meta/subscribe" ? this.refusals.get(subscription) : undefined;
            if (error === undefined) {
                (channel === "/meta/subscribe" ? this.subscribed : this.unsubscribed).push(subscription);
            }
            reply({ successful: error === undefined, subscription, error });
        } else {
            const refusal = this.refusals.get(channel);
            reply(refusal === undefined ? { successful: true } : { successful: false, error: refusal });
            if (refusal === undefined) {
                this.published.push({ channel, data: message.data ?? {} });
                this.onPublish(channel, message.data ?? {});
            }
        }
        const waiters = this.#waiters;
        this.#waiters = [];
        for (const wake of waiters) {
            wake();
        }
    }
}

function send(socket: WebSocket, message: Record<string, unknown>): void {
    socket.send(JSON.stringify([message]));
}
