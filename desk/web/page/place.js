// What the user chose to see, kept in the page's address, so that a reload or a link shows the same.

export function chosen(name, otherwise = '') {
    return new URLSearchParams(location.search).get(name) ?? otherwise;
}

export function choose(name, value) {
    const words = new URLSearchParams(location.search);
    if (value === '' || value === null) {
        words.delete(name);
    } else {
        words.set(name, value);
    }
    const query = words.toString();
    history.replaceState(null, '', (query ? `?${query}` : location.pathname) + location.hash);
}
