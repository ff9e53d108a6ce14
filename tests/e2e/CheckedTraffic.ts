import type { Message } from "./Driver.js";

/** The names of channels that both libraries can deliver. */
const channelName = /^(\/[A-Za-z0-9\-_!~()$@]+)+$/;

/** One of the libraries parses error texts by this grammar, and loses the code of what does not follow it. */
const errorText = /^[0-9]{3}:[A-Za-z0-9 \-_!~()$@/*.,]*:[A-Za-z0-9 \-_!~()$@/*.]+$/;

/** Of all clients of this process or page: each is known to its own client, and to nobody else. */
const clientIds = new Set<string>();

/** A message, and when it passed, in milliseconds. */
export interface Recorded extends Message {
    readonly at: number;
}

/**
 * All messages of one client, in order, each of the server's held against the rules that keep stock clients from
 * hanging, from losing events and from asking hundreds of times a second.
 */
export class CheckedTraffic {
    readonly sent: Recorded[] = [];
    readonly received: Recorded[] = [];
    /** One sentence for each breach of a rule. */
    readonly complaints: string[] = [];
    readonly #asked = new Map<string, { channel: string; isAnswered: boolean }>();

    send(message: Message): void {
        this.sent.push({ ...message, at: Date.now() });
        if (message.id !== undefined) {
            this.#asked.set(message.id, { channel: message.channel, isAnswered: false });
        }
    }

    receive(message: Message): void {
        this.received.push({ ...message, at: Date.now() });
        const complain = (what: string) => {
            this.complaints.push(`${what}: ${JSON.stringify(message).slice(0, 300)}`);
        };
        if (message.successful === undefined) {
            this.#checkEvent(message, complain);
        } else {
            this.#checkReply(message, message.successful, complain);
        }
    }

    #checkEvent(message: Message, complain: (what: string) => void): void {
        if (message.data === undefined) {
            complain("neither a reply nor an event");
        }
        if (message.id !== undefined || message.clientId !== undefined || message.ext !== undefined) {
            complain("an event with fields that belong to replies");
        }
        if (!channelName.test(message.channel) || message.channel.endsWith("/request")) {
            complain("an event on a channel that none should have");
        }
        const text = JSON.stringify(message);
        if ([...clientIds].some((clientId) => text.includes(clientId))) {
            complain("an event that tells a client id");
        }
    }

    #checkReply(message: Message, successful: boolean, complain: (what: string) => void): void {
        const { advice, channel, id } = message;
        const isConnect = channel === "/meta/connect";
        const isHandshake = channel === "/meta/handshake";
        const asked = this.#asked.get(id ?? "");
        if (id === undefined ? channel !== "/meta/disconnect" : asked?.channel !== channel) {
            complain("a reply to nothing that was asked");
        }
        if (asked?.isAnswered) {
            complain("a second reply");
        }
        if (asked) {
            asked.isAnswered = true;
        }
        if (message.data !== undefined) {
            complain("a reply with data");
        }
        if (advice?.reconnect === "handshake" && (successful || !isConnect)) {
            complain("the advice to shake hands where it makes a client hang");
        }
        if (successful && (isConnect || isHandshake) && advice?.reconnect !== "none") {
            if (advice?.reconnect !== "retry" || advice.interval === undefined || !advice.timeout) {
                complain("partial advice");
            }
        }
        if (isHandshake && message.clientId !== undefined) {
            clientIds.add(message.clientId);
        }
        if (isHandshake && successful !== (message.clientId !== undefined)) {
            complain("a client id that should not be there, or none");
        }
        if (!successful && !errorText.test(message.error ?? "")) {
            complain("an error that cannot be parsed");
        }
        if (!successful && isConnect && !["handshake", "none"].includes(advice?.reconnect ?? "")) {
            complain("advice that makes a client ask again at once");
        }
        if (!successful && isHandshake && ![undefined, "none"].includes(advice?.reconnect)) {
            complain("advice that makes a client ask again at once");
        }
        if (channel.endsWith("subscribe") && message.subscription === undefined) {
            complain("a reply that does not say to what subscription");
        }
    }
}
