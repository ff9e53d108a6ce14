import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import { fileURLToPath } from "node:url";

import { Ajv, type ValidateFunction } from "ajv";
import { parse } from "yaml";

const documentPath = fileURLToPath(new URL("../../docs/asyncapi.yaml", import.meta.url));

interface Reference {
    readonly $ref: string;
}

interface Channel {
    readonly address: string;
    readonly messages: Readonly<Record<string, Reference>>;
}

interface MessageObject {
    /** Of an event: its name in the engine. */
    readonly name?: string;
    readonly payload: object;
    readonly examples?: readonly { readonly payload: unknown }[];
}

interface Operation {
    readonly action: "send" | "receive";
    readonly channel: Reference;
    readonly reply?: { readonly channel: Reference };
}

interface Document {
    readonly channels: Readonly<Record<string, Channel>>;
    readonly operations: Readonly<Record<string, Operation>>;
    readonly components: { readonly messages: Readonly<Record<string, MessageObject>> };
}

/** Who sends a message. */
export type Sender = "client" | "server";

/** One message as it passed. */
export interface Passed {
    readonly sender: Sender;
    readonly channel: string;
    readonly data: unknown;
}

/** What docs/asyncapi.yaml says of each channel and message, in a form that messages can be held against. */
export class AsyncApi {
    readonly #document = parse(readFileSync(documentPath, "utf8")) as Document;
    readonly #ajv = new Ajv({ strict: true, allowUnionTypes: true, strictRequired: false });
    readonly #addresses: { name: string; pattern: RegExp; sender: Sender }[] = [];

    constructor() {
        // The document as a whole is no schema: those in it are checked when they are compiled.
        this.#ajv.addVocabulary(Object.keys(this.#document));
        this.#ajv.addSchema(this.#document, "document", undefined, false);
        const senders = new Map<string, Sender>();
        for (const { action, channel, reply } of Object.values(this.#document.operations)) {
            senders.set(channelOf(channel), action === "receive" ? "client" : "server");
            if (reply !== undefined) {
                senders.set(channelOf(reply.channel), "server");
            }
        }
        for (const [name, { address }] of Object.entries(this.#document.channels)) {
            const sender = senders.get(name);
            if (sender === undefined) {
                throw new Error(`no operation uses the channel ${name}`);
            }
            const pattern = new RegExp(`^${address.replace("{client}", "[^/]+")}$`);
            this.#addresses.push({ name, pattern, sender });
        }
    }

    /** What the schema of AsyncAPI itself finds wrong with the document. */
    complaintsOfTheStandard(): string[] {
        const standard = createRequire(import.meta.url)("@asyncapi/specs/schemas/3.0.0.json") as object;
        // It brings its own copy of the schema of schemas, and formats that are nobody's here.
        const ajv = new Ajv({
            strict: false,
            meta: false,
            validateSchema: false,
            validateFormats: false,
            allErrors: true,
        });
        const validate = ajv.compile(standard);
        validate(this.#document);
        return (validate.errors ?? []).map(({ instancePath, message }) => `${instancePath} ${message ?? ""}`);
    }

    /** The names of all messages. */
    get messages(): string[] {
        return Object.keys(this.#document.components.messages);
    }

    /** The names of the engine's events. */
    get events(): string[] {
        return Object.values(this.#document.components.messages).flatMap(({ name }) => name ?? []);
    }

    /** All pairs of a channel and a message of it. */
    get pairs(): string[] {
        return Object.entries(this.#document.channels).flatMap(([name, { messages }]) =>
            Object.keys(messages).map((message) => `${name} ${message}`),
        );
    }

    examplesOf(message: string): unknown[] {
        return (this.#document.components.messages[message]?.examples ?? []).map(({ payload }) => payload);
    }

    /** What is wrong with the payload of a message; nothing if it is as documented. */
    complaintOf(message: string, payload: unknown): string | undefined {
        const validate = this.#validatorOf(message);
        return validate(payload) ? undefined : this.#ajv.errorsText(validate.errors);
    }

    /**
     * Finds the documented message that passed, as a pair of its channel and itself, or says why it is none.
     *
     * @param eventName the event that was subscribed to under the message's identifier
     */
    identify(passed: Passed, eventName?: string): { pair: string } | { complaint: string } {
        const found = this.#addresses.find(({ pattern }) => pattern.test(passed.channel));
        const shown = `${passed.channel}: ${JSON.stringify(passed.data).slice(0, 500)}`;
        if (found?.sender !== passed.sender) {
            return { complaint: `not a channel of the ${passed.sender}'s: ${shown}` };
        }
        const { messages } = this.#document.channels[found.name] as Channel;
        const candidates = Object.keys(messages).filter((name) => {
            const documented = this.#document.components.messages[name]?.name;
            return documented === undefined || documented === eventName;
        });
        const complaints = candidates.map((name) => ({
            name,
            complaint: this.complaintOf(name, passed.data),
        }));
        const fit = complaints.find(({ complaint }) => complaint === undefined);
        return fit
            ? { pair: `${found.name} ${fit.name}` }
            : { complaint: `${complaints.map(({ complaint }) => complaint).join("; ")}: ${shown}` };
    }

    #validatorOf(message: string): ValidateFunction {
        const path = `document#/components/messages/${message}/payload`;
        const validate = this.#ajv.getSchema(path);
        if (validate === undefined) {
            throw new Error(`there is no ${path}`);
        }
        return validate;
    }
}

function channelOf({ $ref }: Reference): string {
    return $ref.replace("#/channels/", "");
}
