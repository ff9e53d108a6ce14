/** The promise, which then need not be waited for. */
export function handled<T>(promise: Promise<T>): Promise<T> {
    promise.catch(() => undefined);
    return promise;
}
