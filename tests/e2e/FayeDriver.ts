import faye, { type Subscription } from "faye";

import { CheckedTraffic } from "./CheckedTraffic.js";
import type { Driver, DriverOptions, Message, Publication } from "./Driver.js";

interface Question {
    readonly isAskedBy: (message: Message) => boolean;
    readonly answer: (reply: Message) => void;
    id?: string;
}

/**
 * The stock `faye` package, in Node or in a page. Its promises keep the replies to themselves, and some of them never
 * settle, so what was asked and answered is read from an extension.
 */
export class FayeDriver implements Driver {
    readonly client: InstanceType<typeof faye.Client>;
    onEvent: Driver["onEvent"] = () => undefined;
    readonly #transport: DriverOptions["transport"];
    readonly #traffic = new CheckedTraffic();
    readonly #subscriptions = new Map<string, Subscription[]>();
    #questions: Question[] = [];
    #token: string | undefined;
    #isEnded = false;

    constructor(options: DriverOptions) {
        this.client = new faye.Client(options.url);
        this.#transport = options.transport;
        if (options.transport === "long-polling") {
            this.client.disable("websocket");
        }
        // The other way round is impossible: it always shakes hands over HTTP.
        for (const [name, value] of Object.entries(options.headers ?? {})) {
            this.client.setHeader(name, value);
        }
        this.client.addExtension({
            outgoing: (message, pass) => {
                if ((message as Message).channel === "/meta/handshake" && this.#token !== undefined) {
                    Object.assign(message, { ext: { token: this.#token } });
                }
                this.#sent(message as Message);
                pass(message);
            },
            incoming: (message, pass) => {
                this.#received(message as Message);
                pass(message);
            },
        });
    }

    #sent(message: Message): void {
        this.#traffic.send(message);
        const question = this.#questions.find((one) => one.id === undefined && one.isAskedBy(message));
        if (question && message.id !== undefined) {
            question.id = message.id;
        }
    }

    #received(message: Message): void {
        this.#traffic.receive(message);
        const question =
            message.successful === undefined
                ? undefined
                : this.#questions.find(({ id }) => id !== undefined && id === message.id);
        if (question) {
            this.#questions = this.#questions.filter((other) => other !== question);
            question.answer(message);
        }
    }

    #replyTo(isAskedBy: Question["isAskedBy"]): Promise<Message> {
        return new Promise((resolve) => {
            this.#questions.push({ isAskedBy, answer: resolve });
        });
    }

    async handshake(token?: string): Promise<Message> {
        this.#token = token;
        const reply = this.#replyTo(({ channel }) => channel === "/meta/handshake");
        this.client.connect();
        const answer = await reply;
        // It polls, and publishes so, until its socket is open.
        while (
            this.#transport &&
            answer.successful &&
            this.client._dispatcher.connectionType !== this.#transport
        ) {
            await new Promise((resolve) => setTimeout(resolve, 5));
        }
        return answer;
    }

    subscribe(channel: string): Promise<Message> {
        const reply = this.#replyTo(
            (message) => message.channel === "/meta/subscribe" && message.subscription === channel,
        );
        const subscription = this.client.subscribe(channel).withChannel((name, data) => {
            this.onEvent({ channel: name, data });
        });
        // A refusal is told by the reply.
        void subscription.then();
        this.#subscriptions.set(channel, [...(this.#subscriptions.get(channel) ?? []), subscription]);
        return reply;
    }

    unsubscribe(channel: string): Promise<Message> {
        const reply = this.#replyTo(
            (message) => message.channel === "/meta/unsubscribe" && message.subscription === channel,
        );
        const subscription = this.#subscriptions.get(channel)?.pop();
        if (!subscription) {
            throw new Error(`there is no subscription to ${channel}`);
        }
        subscription.cancel();
        return reply;
    }

    publish(channel: string, data: unknown): Promise<Message> {
        const reply = this.#replyTo((message) => message.channel === channel && message.data === data);
        void this.client.publish(channel, data).then();
        return reply;
    }

    batch(publications: readonly Publication[]): Promise<Message[]> {
        // What is published in one tick leaves together.
        return Promise.all(publications.map(({ channel, data }) => this.publish(channel, data)));
    }

    async disconnect(): Promise<void> {
        if (!this.#isEnded) {
            this.#isEnded = true;
            await this.client.disconnect();
        }
    }

    traffic(): Promise<CheckedTraffic> {
        return Promise.resolve(this.#traffic);
    }
}
