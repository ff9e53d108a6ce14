import { startAbortable, type AbortOptions } from "./abort.js";
import { asOneOf, asString, readResponse, type JsonObject, type Response } from "./checks.js";
import { Client } from "./Client.js";
import type { Disposable } from "./Disposable.js";
import { ClosedError, ConnectionError, YvmError } from "./errors.js";
import type { R22a0Client } from "./R22a0Client.js";
import type { Subscription, Transport, TransportEvents } from "./transport.js";
import { apiVersions, type ApiVersion } from "./versions.js";

const attachChannel = "/yvm/attach";
const detachChannel = "/yvm/detach";
const sharedSinksText = "/yvm/sinks/response";

/** Milliseconds until something that failed is tried again over a link that seems to be up. */
const linkPatience = 1000;

/**
 * - "connected": requests go out and answers come in
 * - "lost": the link is down, and is being restored; new requests may be refused meanwhile
 * - "closed": for good, by `disconnect` or by the server; then with the reason
 */
export type ConnectionStatus =
    | { readonly state: "connected" }
    | { readonly state: "lost"; readonly reason: Error }
    | { readonly state: "closed"; readonly reason: Error };

export interface AttachOptions extends AbortOptions {
    /**
     * Names the client and its channels: 1 to 64 letters, digits, `-` and `_`, not in use by another
     * session. Default a random one.
     */
    readonly requestID?: string;
    /** The versions of the protocol to offer, in any order; the newest that the server speaks is taken. Default all. */
    readonly apiVersions?: readonly ApiVersion[];
}

interface Attached {
    readonly client: Client;
    subscription: Subscription;
}

interface Waiter<T> {
    resolve(value: T): void;
    reject(reason: Error): void;
}

/** A connection to the server, made by `connect`. It carries any number of attached clients. */
export class Connection {
    readonly #transport: Transport;
    /** Attached clients by channel prefix. */
    readonly #clients = new Map<string, Attached>();
    /** Identifiers of attached clients, and of those about to be. */
    readonly #identifiers = new Set<string>();
    /** Attaches and detaches that wait for their response, by channel and requestID. */
    readonly #pending = new Map<string, Waiter<Response>>();
    /** Whoever waits for a lost link to be up again. */
    #linkWaiters: Waiter<void>[] = [];
    readonly #statusListeners = new Set<(status: ConnectionStatus) => void>();
    #status: ConnectionStatus = { state: "connected" };
    #ownChannels: Promise<unknown> | undefined;
    /** Clients of r22a0 that read the text of the sinks which they share. */
    readonly #sharedSinksReaders = new Set<Client>();
    /** The subscription to that text, if there is one in this session. */
    #sharedSinks: Promise<Subscription> | undefined;
    #identifierCount = 0;

    /**
     * @internal Use `connect`.
     * @param createTransport makes the transport, given where it is to report
     */
    private constructor(createTransport: (events: TransportEvents) => Transport) {
        this.#transport = createTransport({
            onMessage: (channel, data) => {
                this.#onMessage(channel, data);
            },
            onLost: (reason) => {
                this.#onLost(reason);
            },
            onRestored: (session) => {
                void this.#onRestored(session);
            },
            onClosed: (reason) => {
                this.#end(reason);
            },
        });
    }

    /** @internal Use `connect`. */
    static async open(
        createTransport: (events: TransportEvents) => Transport,
        { signal }: AbortOptions,
    ): Promise<Connection> {
        const connection = new Connection(createTransport);
        await startAbortable(
            signal,
            () => connection.#transport.open(),
            () => {
                void connection.disconnect();
            },
        );
        return connection;
    }

    get status(): ConnectionStatus {
        return this.#status;
    }

    /** Calls the listener at each change of the status, and not for the present one. */
    onStatus(listener: (status: ConnectionStatus) => void): Disposable {
        this.#statusListeners.add(listener);
        return { dispose: () => this.#statusListeners.delete(listener) };
    }

    /**
     * Attaches to the engine. Waits while the engine is starting.
     *
     * The client's calls are the same whatever version is agreed on; those that r22a0 lacks reject with
     * UnsupportedError. Who offers that version alone is given a type without them.
     *
     * @throws YvmError if the module refuses it, RefusedError if the server does, e.g. because another
     * session uses the identifier, TypeError if this connection does, AbortedError
     */
    attach(options: AttachOptions & { readonly apiVersions: readonly ["r22a0"] }): Promise<R22a0Client>;
    attach(options?: AttachOptions): Promise<Client>;
    attach(options: AttachOptions = {}): Promise<Client> {
        return startAbortable(
            options.signal,
            () =>
                this.#attach(options.requestID ?? this.#newIdentifier(), options.apiVersions ?? apiVersions),
            (attached) => {
                // The engine may have taken the client, or take it later. Where it does not, all is well.
                attached.then((client) => client.detach()).catch(() => undefined);
            },
        );
    }

    async #attach(requestID: string, offered: readonly ApiVersion[]): Promise<Client> {
        this.#requireOpen();
        if (this.#identifiers.has(requestID)) {
            // The module would answer with success, and two clients would share one set of channels.
            throw new TypeError(`A client of this connection is attached as "${requestID}" already`);
        }
        this.#identifiers.add(requestID);
        try {
            return await this.#attachAs(requestID, offered);
        } catch (error) {
            this.#identifiers.delete(requestID);
            throw error;
        }
    }

    async #attachAs(requestID: string, offered: readonly ApiVersion[]): Promise<Client> {
        const { apiVersion, channelPrefix } = await this.#requestAttach(requestID, offered);
        const client = new Client(requestID, apiVersion, channelPrefix, {
            publish: (channel, data) => this.#publish(channel, data),
            untilLinkIsBack: () => this.#untilLinkIsBack(),
            readSharedSinks: (reader) => this.#readSharedSinks(reader),
            leaveSharedSinks: (reader) => void this.#leaveSharedSinks(reader),
            detach: (detached) => this.#detach(detached),
        });
        // The server lets us subscribe below the prefix only once we are attached.
        const subscription = await this.#transport.subscribe(`${channelPrefix}/**`);
        this.#requireOpen();
        this.#clients.set(channelPrefix, { client, subscription });
        return client;
    }

    /** Detaches all clients and says goodbye. Everything open rejects with ClosedError. Idempotent. */
    async disconnect(): Promise<void> {
        this.#end(new ClosedError("The connection was closed by disconnect()"));
        // The server detaches the clients of a session that ends.
        await this.#transport.close();
    }

    async #requestAttach(
        requestID: string,
        supportedApiVersions: readonly ApiVersion[],
    ): Promise<{ apiVersion: ApiVersion; channelPrefix: string }> {
        // Before the publish, since the response comes as soon as the engine is there. Once is enough.
        this.#ownChannels ??= Promise.all([
            this.#transport.subscribe(`${attachChannel}/response`),
            this.#transport.subscribe(`${detachChannel}/response`),
        ]).catch((error: unknown) => {
            this.#ownChannels = undefined; // the next attach tries again
            throw error;
        });
        await this.#ownChannels;
        const response = await this.#request(attachChannel, {
            requestID,
            yvmID: "user-yvm",
            supportedApiVersions,
        });
        const path = `${attachChannel}/response`;
        return {
            apiVersion: asOneOf(response.body["apiVersion"], supportedApiVersions, `${path}.apiVersion`),
            channelPrefix: asString(response.body["channelPrefix"], `${path}.channelPrefix`),
        };
    }

    async #detach(client: Client): Promise<void> {
        const attached = this.#clients.get(client.channelPrefix);
        if (attached?.client !== client) {
            return; // detached before
        }
        this.#clients.delete(client.channelPrefix);
        this.#identifiers.delete(client.requestID);
        client.close(new ClosedError("The client was detached"));
        attached.subscription.unsubscribe();
        await this.#request(detachChannel, {
            requestID: this.#newIdentifier(),
            requestIDtoDetach: client.requestID,
        });
    }

    async #readSharedSinks(client: Client): Promise<void> {
        this.#sharedSinksReaders.add(client);
        this.#sharedSinks ??= this.#transport.subscribe(sharedSinksText).catch((error: unknown) => {
            this.#sharedSinks = undefined; // the next reader tries again
            throw error;
        });
        await this.#sharedSinks;
    }

    async #leaveSharedSinks(client: Client): Promise<void> {
        if (!this.#sharedSinksReaders.delete(client)) {
            return;
        }
        const subscribed = this.#sharedSinks;
        const subscription = await subscribed?.catch(() => undefined);
        // Somebody may have come to read meanwhile, or the session may be another.
        if (subscription && this.#sharedSinks === subscribed && this.#sharedSinksReaders.size === 0) {
            this.#sharedSinks = undefined;
            subscription.unsubscribe();
        }
    }

    /** Publishes a request on one of the two public channels, and waits for the response. */
    #request(channel: string, data: JsonObject & { readonly requestID: string }): Promise<Response> {
        const key = `${channel} ${data.requestID}`;
        return new Promise<Response>((resolve, reject) => {
            this.#pending.set(key, { resolve, reject });
            this.#publish(`${channel}/request`, data).catch((error: unknown) => {
                this.#pending.delete(key);
                reject(error as Error);
            });
        });
    }

    async #publish(channel: string, data: JsonObject): Promise<void> {
        this.#requireOpen();
        await this.#transport.publish(channel, data);
    }

    #untilLinkIsBack(): Promise<void> {
        return new Promise((resolve, reject) => {
            this.#requireOpen();
            if (this.#status.state === "connected") {
                // What failed told of the loss before the transport did, or tells of it too late.
                setTimeout(resolve, linkPatience);
            } else {
                this.#linkWaiters.push({ resolve, reject });
            }
        });
    }

    #takeLinkWaiters(): Waiter<void>[] {
        const waiters = this.#linkWaiters;
        this.#linkWaiters = [];
        return waiters;
    }

    #onMessage(channel: string, data: unknown): void {
        try {
            if (channel === `${attachChannel}/response`) {
                this.#onResponse(attachChannel, readResponse(data, channel));
            } else if (channel === `${detachChannel}/response`) {
                this.#onResponse(detachChannel, readResponse(data, channel));
            } else if (channel === sharedSinksText) {
                for (const client of [...this.#sharedSinksReaders]) {
                    client.handleSharedText(channel, data);
                }
            } else {
                const prefix = channel.split("/", 3).join("/");
                this.#clients.get(prefix)?.client.handleMessage(channel, data);
            }
        } catch (error) {
            // Whatever this server speaks, it is not our protocol: better to end than to wait for
            // answers that can't be recognised.
            this.#end(error as Error);
            void this.#transport.close();
        }
    }

    #onResponse(channel: string, response: Response): void {
        const key = `${channel} ${response.requestID}`;
        const pending = this.#pending.get(key);
        this.#pending.delete(key);
        if (response.error) {
            pending?.reject(new YvmError(response.error));
        } else {
            pending?.resolve(response);
        }
    }

    #onLost(reason: Error): void {
        this.#setStatus({ state: "lost", reason });
        if (!this.#transport.redelivers) {
            this.#failPending(reason);
            for (const { client } of this.#clients.values()) {
                client.failOpenRequests(reason);
            }
        }
    }

    async #onRestored(session: "kept" | "new"): Promise<void> {
        if (session === "new") {
            const reason = new ConnectionError("The server no longer knows this session");
            this.#sharedSinks = undefined;
            this.#failPending(reason);
            for (const { client } of this.#clients.values()) {
                client.endSession(reason);
            }
            for (const waiter of this.#takeLinkWaiters()) {
                waiter.reject(reason);
            }
            this.#ownChannels = undefined;
            await Promise.all([...this.#clients.values()].map((attached) => this.#attachAgain(attached)));
        }
        if (this.#status.state === "lost") {
            this.#setStatus({ state: "connected" });
        }
        if (session === "kept") {
            for (const waiter of this.#takeLinkWaiters()) {
                waiter.resolve();
            }
        }
    }

    async #attachAgain(attached: Attached): Promise<void> {
        const { client } = attached;
        try {
            await this.#requestAttach(client.requestID, [client.apiVersion]);
            attached.subscription = await this.#transport.subscribe(`${client.channelPrefix}/**`);
        } catch (error) {
            this.#clients.delete(client.channelPrefix);
            this.#identifiers.delete(client.requestID);
            client.close(error as Error);
        }
    }

    /** Attaches and detaches that are open. */
    #failPending(reason: Error): void {
        const pending = [...this.#pending.values()];
        this.#pending.clear();
        for (const response of pending) {
            response.reject(reason);
        }
    }

    #end(reason: Error): void {
        if (this.#status.state === "closed") {
            return;
        }
        this.#setStatus({ state: "closed", reason });
        this.#failPending(reason);
        for (const waiter of this.#takeLinkWaiters()) {
            waiter.reject(reason);
        }
        for (const { client } of this.#clients.values()) {
            client.close(reason);
        }
        this.#clients.clear();
    }

    #setStatus(status: ConnectionStatus): void {
        this.#status = status;
        for (const listener of [...this.#statusListeners]) {
            listener(status);
        }
    }

    #requireOpen(): void {
        if (this.#status.state === "closed") {
            throw new ClosedError("The connection is closed", { cause: this.#status.reason });
        }
    }

    /** Unlikely to meet another's; the server refuses it if it does, so it need not be a secret. */
    #newIdentifier(): string {
        const random = () => Math.random().toString(36).slice(2, 10);
        this.#identifierCount += 1;
        return `${random()}${random()}-${this.#identifierCount}`;
    }
}
