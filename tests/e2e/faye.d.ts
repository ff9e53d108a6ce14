/** What the tests use of the package, which brings no types of its own. */
declare module "faye" {
    export interface Extension {
        incoming?(message: object, pass: (message: object) => void): void;
        outgoing?(message: object, pass: (message: object) => void): void;
    }

    export interface Deferrable {
        then(onSuccess?: () => void, onFailure?: (error: unknown) => void): Promise<void>;
    }

    export interface Subscription extends Deferrable {
        withChannel(listener: (channel: string, data: unknown) => void): this;
        cancel(): void;
    }

    export class Client {
        /** The only place that tells by which transport the next message goes. */
        readonly _dispatcher: { readonly connectionType?: string };
        constructor(url: string, options?: { retry?: number });
        addExtension(extension: Extension): void;
        disable(feature: string): void;
        setHeader(name: string, value: string): void;
        handshake(onSuccess: () => void): void;
        /** Repeats itself from then on. */
        connect(onConnected?: () => void): void;
        subscribe(channel: string): Subscription;
        publish(channel: string, data: unknown): Deferrable;
        disconnect(): Deferrable | undefined;
        on(event: "transport:down" | "transport:up", listener: () => void): void;
    }

    const faye: { Client: typeof Client };
    export default faye;
}
