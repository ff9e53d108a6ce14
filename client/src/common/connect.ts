import type { AbortOptions } from "./abort.js";
import { parseAddress } from "./address.js";
import { CometdTransport, type CometdOptions } from "./CometdTransport.js";
import { Connection } from "./Connection.js";

export interface ConnectOptions extends CometdOptions, AbortOptions {
    /** The server's token. Default: the one in the address, if there is one. */
    readonly token?: string | undefined;
}

/**
 * Connects to a server.
 *
 * @param url the address that the server prints, e.g. `http://127.0.0.1:8888/?token=...`, or that of its
 * endpoint, e.g. `http://127.0.0.1:8888/bayeux`
 * @throws TypeError for a malformed address, RefusedError for a wrong token, ConnectionError if no server
 * answers there, AbortedError
 */
export async function connect(url: string, options: ConnectOptions = {}): Promise<Connection> {
    const address = parseAddress(url);
    const token = options.token ?? address.token;
    return Connection.open((events) => new CometdTransport({ ...address, token }, events, options), options);
}
