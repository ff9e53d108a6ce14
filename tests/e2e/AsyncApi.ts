import { readFileSync } from "node:fs";
import { createRequire } from "node:module";

import { Ajv } from "ajv";
import { parse } from "yaml";

/** Where the documents stand, for one refers to the other. */
const folder = new URL("../../docs/", import.meta.url);

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
    readonly examples?: readonly { readonly payload: unknown }[];
}

interface Operation {
    readonly action: "send" | "receive";
    readonly channel: Reference;
    readonly reply?: { readonly channel: Reference };
}

interface Document {
    readonly channels: Readonly<Record<string, Channel | Reference>>;
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

/** A message of a channel, and the place where it is described. */
interface Described extends MessageObject {
    /** The names of its channel and its own. */
    readonly pair: string;
    readonly place: URL;
}

/** What one of the documents says of each channel and message, in a form that messages can be held against. */
export class AsyncApi {
    readonly #ajv = new Ajv({ strict: true, allowUnionTypes: true, strictRequired: false });
    readonly #place: URL;
    readonly #document: Document;
    readonly #documents = new Map<string, Document>();
    readonly #channels: { pattern: RegExp; sender: Sender; messages: Described[] }[] = [];

    constructor(fileName: string) {
        // A document as a whole is no schema: those in it are checked when they are compiled.
        this.#ajv.addVocabulary([
            "asyncapi",
            "info",
            "defaultContentType",
            "servers",
            "channels",
            "operations",
            "components",
        ]);
        this.#place = new URL(fileName, folder);
        this.#document = this.#load(this.#place);
        const senders = new Map<string, Sender>();
        for (const { action, channel, reply } of Object.values(this.#document.operations)) {
            senders.set(channel.$ref, action === "receive" ? "client" : "server");
            if (reply !== undefined) {
                senders.set(reply.channel.$ref, "server");
            }
        }
        for (const name of Object.keys(this.#document.channels)) {
            const place = new URL(`#/channels/${name}`, this.#place);
            const sender = senders.get(place.hash);
            if (sender === undefined) {
                throw new Error(`no operation uses the channel ${name}`);
            }
            const [{ address, messages }, itsPlace] = this.#find<Channel>(place);
            this.#channels.push({
                pattern: new RegExp(`^${address.replace("{client}", "[^/]+")}$`),
                sender,
                messages: Object.entries(messages).map(([message, { $ref }]) => {
                    const [described, at] = this.#find<MessageObject>(new URL($ref, itsPlace));
                    return { ...described, pair: `${name} ${message}`, place: at };
                }),
            });
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

    /** The names of the messages that this document describes itself. */
    get messages(): string[] {
        return Object.keys(this.#document.components.messages);
    }

    /** What is wrong with the examples of such a message; nothing if each is one. */
    complaintsOfExamples(message: string): string[] {
        const [{ examples = [] }, place] = this.#find<MessageObject>(
            new URL(`#/components/messages/${message}`, this.#place),
        );
        const complaints = examples.flatMap(({ payload }) => this.#complaintOf(place, payload) ?? []);
        return examples.length > 0 ? complaints : ["there is none"];
    }

    /** The names of the engine's events. */
    get events(): string[] {
        return this.#channels.flatMap(({ messages }) => messages.flatMap(({ name }) => name ?? []));
    }

    /** All pairs of a channel and a message of it. */
    get pairs(): string[] {
        return this.#channels.flatMap(({ messages }) => messages.map(({ pair }) => pair));
    }

    /**
     * Finds the documented message that passed, as a pair of its channel and itself, or says why it is none.
     *
     * @param eventName the event that was subscribed to under the message's identifier
     */
    identify(passed: Passed, eventName?: string): { pair: string } | { complaint: string } {
        const channel = this.#channels.find(({ pattern }) => pattern.test(passed.channel));
        const shown = `${passed.channel}: ${JSON.stringify(passed.data).slice(0, 500)}`;
        if (channel?.sender !== passed.sender) {
            return { complaint: `not a channel of the ${passed.sender}'s: ${shown}` };
        }
        const complaints: string[] = [];
        for (const { name, pair, place } of channel.messages) {
            if (name === undefined || name === eventName) {
                const complaint = this.#complaintOf(place, passed.data);
                if (complaint === undefined) {
                    return { pair };
                }
                complaints.push(complaint);
            }
        }
        return { complaint: `${complaints.join("; ")}: ${shown}` };
    }

    /** What is wrong with the payload of the message that is described at a place. */
    #complaintOf(place: URL, payload: unknown): string | undefined {
        const validate = this.#ajv.getSchema(`${place.href}/payload`);
        if (validate === undefined) {
            throw new Error(`there is no ${place.href}/payload`);
        }
        return validate(payload) === true ? undefined : this.#ajv.errorsText(validate.errors);
    }

    /** What stands at a place, or at the place that is referred to there; and where it really stands. */
    #find<T extends object>(place: URL): [T, URL] {
        let found: unknown = this.#load(place);
        for (const key of place.hash.slice(2).split("/")) {
            found = (found as Record<string, unknown>)[key];
        }
        if (typeof found !== "object" || found === null) {
            throw new Error(`there is no ${place.href}`);
        }
        return "$ref" in found ? this.#find(new URL((found as Reference).$ref, place)) : [found as T, place];
    }

    #load(place: URL): Document {
        const file = place.href.replace(/#.*/, "");
        let document = this.#documents.get(file);
        if (document === undefined) {
            document = parse(readFileSync(new URL(file), "utf8")) as Document;
            this.#documents.set(file, document);
            this.#ajv.addSchema(document, file, undefined, false);
        }
        return document;
    }
}
