/** Ends what it was returned for. */
export interface Disposable {
    dispose(): void;
}
