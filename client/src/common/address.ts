/** Where to connect, and as whom. */
export interface Address {
    /** Address of the message endpoint, e.g. `http://127.0.0.1:8888/bayeux`. */
    readonly endpoint: string;
    /** The token found in the address, if there was one. */
    readonly token: string | undefined;
}

/**
 * Reads the address that the server prints, e.g. `http://127.0.0.1:8888/?token=abc`, or that of the
 * endpoint itself. The token is taken out of the query, which would show up in logs and proxies.
 *
 * @throws TypeError if it is no http or https address
 */
export function parseAddress(url: string): Address {
    const parts = /^(https?:\/\/[^/?#]+)([^?#]*)(?:\?([^#]*))?(?:#.*)?$/i.exec(url);
    if (!parts) {
        throw new TypeError(`"${url}" is no address of the form http://host:port/ or https://host:port/`);
    }
    const [, origin = "", path = "", query = ""] = parts;
    const parameters = query.split("&").filter((parameter) => parameter !== "");
    const token = parameters.find((parameter) => parameter.startsWith("token="));
    const rest = parameters.filter((parameter) => !parameter.startsWith("token="));
    const folder = path.replace(/\/+$/, "");
    const endpoint = folder.endsWith("/bayeux") ? folder : `${folder}/bayeux`;
    return {
        endpoint: origin + endpoint + (rest.length > 0 ? `?${rest.join("&")}` : ""),
        token: token === undefined ? undefined : decodeURIComponent(token.slice("token=".length)),
    };
}
