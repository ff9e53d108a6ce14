const storageKey = "yvm-token";

/** What is needed of the browser; a test brings its own. */
export interface TokenPlaces {
    readonly location: { readonly href: string };
    readonly history: { replaceState(data: unknown, unused: string, url: string): void };
    readonly sessionStorage: Pick<Storage, "getItem" | "setItem">;
}

/**
 * Takes the token out of the page's address, where it would be seen, bookmarked and sent on, and keeps it
 * for this tab. Returns the one kept earlier if the address has none.
 */
export function takeToken({ location, history, sessionStorage }: TokenPlaces): string | undefined {
    const url = new URL(location.href);
    const token = url.searchParams.get("token");
    if (token === null) {
        return sessionStorage.getItem(storageKey) ?? undefined;
    }
    url.searchParams.delete("token");
    history.replaceState(null, "", url.href);
    keepToken(token, sessionStorage);
    return token;
}

export function keepToken(token: string, storage: Pick<Storage, "setItem">): void {
    storage.setItem(storageKey, token);
}
