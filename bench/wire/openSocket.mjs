import WebSocket from "ws";

/** An open WebSocket. No compression, on either side: between processes of one machine it only costs. */
export function openSocket(url, protocols = []) {
    return new Promise((resolve, reject) => {
        const socket = new WebSocket(url, protocols, { perMessageDeflate: false });
        socket.once("open", () => resolve(socket));
        socket.once("error", reject);
    });
}
