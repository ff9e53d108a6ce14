import { once } from "node:events";
import { connect, createServer, type AddressInfo, type Server, type Socket } from "node:net";

/** Passes bytes on to a server, and cuts connections where it is told to. */
export class CuttingRelay {
    /** How many connections were cut. */
    cuts = 0;
    /** After how many bytes a connection that opens now will be cut. */
    lifetime: () => number = () => Infinity;
    /** Whether the bytes that pass now, in either direction, count for the connection of this number. */
    counts: (connection: number) => boolean = () => true;

    readonly #server: Server;
    readonly #sockets = new Set<Socket>();
    #connections = 0;

    private constructor(target: URL) {
        this.#server = createServer((client) => {
            this.#relay(client, connect(Number(target.port), target.hostname));
        });
    }

    static async start(target: URL): Promise<CuttingRelay> {
        const relay = new CuttingRelay(target);
        relay.#server.listen(0, "127.0.0.1");
        await once(relay.#server, "listening");
        return relay;
    }

    get origin(): string {
        return `http://127.0.0.1:${String((this.#server.address() as AddressInfo).port)}`;
    }

    /** Cuts all connections that are open. */
    cutAll(): void {
        for (const socket of this.#sockets) {
            socket.destroy();
        }
    }

    async stop(): Promise<void> {
        this.#server.close();
        this.cutAll();
        await once(this.#server, "close");
    }

    #relay(client: Socket, server: Socket): void {
        const connection = this.#connections++;
        let left = this.lifetime();
        for (const [from, to] of [
            [client, server],
            [server, client],
        ] as const) {
            this.#sockets.add(from);
            from.setNoDelay(true);
            from.on("data", (piece: Buffer) => {
                if (to.destroyed || to.writableEnded) {
                    return;
                }
                if (!this.counts(connection)) {
                    to.write(piece);
                } else if (piece.length <= left) {
                    left -= piece.length;
                    to.write(piece);
                } else {
                    this.cuts++;
                    // What was in time arrives, as when a cable is pulled.
                    to.end(piece.subarray(0, left));
                    from.destroy();
                }
            });
            from.on("error", () => {
                // Its close follows, which is what counts.
            });
            from.on("close", () => {
                this.#sockets.delete(from);
                if (!to.writableEnded) {
                    to.destroy();
                }
            });
        }
    }
}
