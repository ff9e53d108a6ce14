import {
    Agent,
    createServer,
    request,
    type IncomingHttpHeaders,
    type IncomingMessage,
    type Server,
    type ServerResponse,
} from "node:http";
import { connect, type AddressInfo, type Socket } from "node:net";
import { pipeline, type Duplex } from "node:stream";

export interface RelayOptions {
    /** What an upgrade to WebSocket waits for before it is handed on. */
    readonly delayUpgrades?: Promise<void>;
    /** Answers upgrades with 404 itself, as a proxy does that knows nothing of WebSocket. */
    readonly refuseUpgrades?: boolean;
}

export interface Answer {
    /** Method and path, such as `POST /bayeux/connect`. */
    readonly request: string;
    readonly status: number;
    readonly headers: IncomingHttpHeaders;
    readonly body: string;
}

/** Stands between clients and the server, counts what passes, and gets in the way as it is told. */
export class Relay {
    /** Each answer to a request that was no upgrade. */
    readonly answers: Answer[] = [];
    /** Requests that are no upgrades. */
    requests = 0;
    /** Upgrades that were asked for, refused ones among them. */
    upgrades = 0;
    /** Requests whose client went away before the answer. */
    abandoned = 0;
    readonly #target: URL;
    readonly #options: RelayOptions;
    readonly #server: Server;
    readonly #agent = new Agent({ keepAlive: true });
    readonly #sockets = new Set<Duplex>();
    #isCut = false;

    private constructor(target: URL, options: RelayOptions) {
        this.#target = target;
        this.#options = options;
        this.#server = createServer((incoming, response) => {
            this.#pass(incoming, response);
        });
        this.#server.on("connection", (socket) => {
            if (this.#isCut) {
                socket.destroy();
            }
        });
        this.#server.on("upgrade", (incoming: IncomingMessage, socket: Duplex, head: Buffer) => {
            this.#upgrade(incoming, socket, head);
        });
    }

    /** A relay to the server at `target`, on a port of this machine that is free. */
    static async to(target: URL, options: RelayOptions = {}): Promise<Relay> {
        const relay = new Relay(target, options);
        await new Promise<void>((resolve) => relay.#server.listen(0, "127.0.0.1", resolve));
        return relay;
    }

    get origin(): string {
        return `http://127.0.0.1:${String((this.#server.address() as AddressInfo).port)}`;
    }

    get endpoint(): string {
        return `${this.origin}/bayeux`;
    }

    /** Cuts every connection, and each new one, until `mend`. */
    cut(): void {
        this.#isCut = true;
        for (const socket of this.#sockets) {
            socket.destroy();
        }
        this.#server.closeAllConnections();
    }

    mend(): void {
        this.#isCut = false;
    }

    async close(): Promise<void> {
        const closed = new Promise((resolve) => this.#server.close(resolve));
        this.cut();
        this.#agent.destroy();
        await closed;
    }

    #pass(incoming: IncomingMessage, response: ServerResponse): void {
        this.requests += 1;
        const outgoing = request(
            new URL(incoming.url ?? "", this.#target),
            { method: incoming.method, headers: incoming.headers, agent: this.#agent },
            (answer) => {
                const chunks: Buffer[] = [];
                answer.on("data", (chunk: Buffer) => chunks.push(chunk));
                const { statusCode: status = 502, headers } = answer;
                answer.on("end", () => {
                    const path = (incoming.url ?? "").replace(/\?.*/, "");
                    this.answers.push({
                        request: `${incoming.method ?? ""} ${path}`,
                        status,
                        headers,
                        body: Buffer.concat(chunks).toString(),
                    });
                });
                response.writeHead(status, headers);
                answer.pipe(response);
            },
        );
        outgoing.on("error", () => response.destroy());
        response.on("close", () => {
            if (!response.writableEnded) {
                this.abandoned += 1;
                outgoing.destroy();
            }
        });
        incoming.pipe(outgoing);
    }

    #upgrade(incoming: IncomingMessage, client: Duplex, head: Buffer): void {
        this.upgrades += 1;
        client.on("error", () => client.destroy());
        this.#sockets.add(client);
        client.on("close", () => this.#sockets.delete(client));
        if (this.#options.refuseUpgrades) {
            client.end("HTTP/1.1 404 Not Found\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
            return;
        }
        void (this.#options.delayUpgrades ?? Promise.resolve()).then(() => {
            if (!client.destroyed) {
                this.#connect(incoming, client, head);
            }
        });
    }

    #connect(incoming: IncomingMessage, client: Duplex, head: Buffer): void {
        const server: Socket = connect(Number(this.#target.port), this.#target.hostname, () => {
            const { method = "", url = "", rawHeaders } = incoming;
            let header = `${method} ${url} HTTP/1.1\r\n`;
            for (let index = 0; index < rawHeaders.length; index += 2) {
                header += `${rawHeaders[index] ?? ""}: ${rawHeaders[index + 1] ?? ""}\r\n`;
            }
            server.write(`${header}\r\n`);
            server.write(head);
        });
        server.setNoDelay(true);
        // Either end takes the other along, whatever went wrong.
        pipeline(client, server, client, () => undefined);
    }
}
