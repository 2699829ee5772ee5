"use strict";
// The table of inputs. Its rows are objects that pagerow.cpp makes; every text in them goes into the page as text only.
(() => {
    const kPageSize = 100;
    const kMostSmallTracks = 8;
    const kSvg = document.getElementById("hatch").namespaceURI;

    const rows = JSON.parse(document.getElementById("rows").textContent);
    const hasChanges = rows.some((row) => row.change);

    function fill(node, attributes, children) {
        for (const [name, value] of Object.entries(attributes)) {
            if (typeof value === "function")
                node.addEventListener(name, value);
            else if (value !== undefined && value !== false)
                node.setAttribute(name, value === true ? "" : value);
        }
        node.append(...children.filter((child) => child !== null));
        return node;
    }
    const html = (tag, attributes = {}, ...children) => fill(document.createElement(tag), attributes, children);
    const svg = (tag, attributes = {}, ...children) => fill(document.createElementNS(kSvg, tag), attributes, children);

    function timeText(ms) {
        const sign = ms < 0 ? "-" : "";
        const distance = Math.abs(ms);
        const pad = (number, digits) => String(number).padStart(digits, "0");
        const seconds = Math.floor(distance / 1000);
        const rest = `${pad(seconds % 60, 2)}.${pad(distance % 1000, 3)}`;
        const minutes = Math.floor(seconds / 60);
        return minutes < 60 ? `${sign}${minutes}:${rest}`
            : `${sign}${Math.floor(minutes / 60)}:${pad(minutes % 60, 2)}:${rest}`;
    }

    function sizeText(bytes) {
        const units = ["bytes", "kB", "MB", "GB", "TB", "PB"];
        let unit = 0;
        for (; bytes >= 1000 && unit + 1 < units.length; ++unit)
            bytes /= 1000;
        return `${bytes.toFixed(unit === 0 ? 0 : 1)} ${units[unit]}`;
    }

    const count = (number) => number.toLocaleString("en");

    // Pictures of tracks over time.

    /// The end of the time axis, ms.
    function endOf(row) {
        let end = 1;
        const reach = (time) => { end = Math.max(end, time ?? 0); };
        reach(row.announced);
        reach(row.duration);
        for (const track of row.tracks) {
            reach(track.last);
            reach(track.until);
        }
        return end;
    }

    function pictureLabel(row) {
        const words = row.tracks.map((track) => `${track.kind} ${track.play}`);
        return `Tracks over ${timeText(endOf(row))}: ${words.join("; ")}`;
    }

    /// Whether the time before the track begins can be seen.
    const isLate = (track, end) => (track.first ?? 0) > end / 200;

    /// One track: what plays, what is missing, what is left out, and the time before it begins.
    function drawTrack(track, end, scale, top, height) {
        const first = Math.max(track.first ?? 0, 0);
        const last = Math.max(track.last ?? end, first);
        const parts = [];
        const stretch = (name, from, to) => {
            if (to > from)
                parts.push(svg("rect", {class: name, x: scale(from), y: top, height,
                                        width: Math.max(scale(to) - scale(from), 1)}));
        };
        if (isLate(track, end))
            parts.push(svg("line", {class: "t-gap", x1: scale(0), x2: scale(first), y1: top + height / 2,
                                    y2: top + height / 2}));
        if (!track.plays) {
            stretch("t-dropped", first, last);
            return parts;
        }
        const until = Math.min(Math.max(track.until ?? last, first), Math.max(last, track.until ?? 0));
        stretch("t-missing", until, last);
        stretch("t-plays", first, until);
        return parts;
    }

    /// Where the file ends, as far as it plays.
    function drawEnd(row, scale, top, bottom) {
        if (row.cause !== "cut-short" || row.until === undefined)
            return [];
        const x = scale(row.until);
        return [svg("line", {class: "t-end", x1: x, x2: x, y1: top, y2: bottom})];
    }

    function smallPicture(row) {
        const tracks = row.tracks.slice(0, kMostSmallTracks);
        if (tracks.length === 0)
            return html("span", {class: "unseen"}, "no tracks");
        const end = endOf(row);
        const scale = (time) => 1 + 178 * Math.min(time / end, 1);
        const height = tracks.length * 9;
        const parts = tracks.flatMap((track, i) => drawTrack(track, end, scale, i * 9 + 2, 6));
        return svg("svg", {class: "tracks", viewBox: `0 0 180 ${height + 2}`, role: "img", "aria-label": pictureLabel(row)},
                   ...parts, ...drawEnd(row, scale, 0, height + 2));
    }

    function drawAxis(end, scale, bottom) {
        const parts = [];
        for (let i = 0; i <= 4; ++i) {
            const x = scale(end * i / 4);
            parts.push(svg("line", {class: "t-grid", x1: x, x2: x, y1: 18, y2: bottom}));
            const anchor = i === 0 ? "start" : (i === 4 ? "end" : "middle");
            parts.push(svg("text", {class: "axis", x, y: 12, "text-anchor": anchor}, timeText(Math.round(end * i / 4))));
        }
        return parts;
    }

    function largePicture(row) {
        const end = endOf(row);
        const left = 110;
        const scale = (time) => left + (798 - left) * Math.min(time / end, 1);
        const bottom = 22 + row.tracks.length * 22;
        const parts = drawAxis(end, scale, bottom);
        row.tracks.forEach((track, i) => {
            const name = track.id > 0 ? `${track.id} ${track.kind}` : track.kind;
            parts.push(svg("text", {x: 0, y: 36 + i * 22}, name), ...drawTrack(track, end, scale, 25 + i * 22, 14));
        });
        for (const finding of row.findings)
            if (finding.time !== undefined) {
                const x = scale(finding.time);
                parts.push(svg("path", {class: "t-mark", d: `M${x - 4} ${bottom + 8}h8l-4 -7z`},
                               svg("title", {}, `${finding.number} at ${timeText(finding.time)}`)));
            }
        return svg("svg", {class: "tracks large", viewBox: `0 0 800 ${bottom + 12}`, role: "img",
                           "aria-label": pictureLabel(row)}, ...parts, ...drawEnd(row, scale, 18, bottom));
    }

    function legend(row) {
        const shown = [];
        const add = (name, draw) => shown.push(html("span", {}, svg("svg", {viewBox: "0 0 24 12", "aria-hidden": "true"}, draw), name));
        const box = (name) => svg("rect", {class: name, x: 1, y: 1, width: 22, height: 10});
        if (row.tracks.some((track) => track.plays))
            add("plays", box("t-plays"));
        if (row.tracks.some((track) => track.plays && track.until !== undefined && track.until < (track.last ?? 0)))
            add("missing", box("t-missing"));
        if (row.tracks.some((track) => !track.plays))
            add("does not play", box("t-dropped"));
        if (row.tracks.some((track) => isLate(track, endOf(row))))
            add("not begun", svg("line", {class: "t-gap", x1: 0, x2: 24, y1: 6, y2: 6}));
        if (row.cause === "cut-short" && row.until !== undefined)
            add("the file plays until here", svg("line", {class: "t-end", x1: 12, x2: 12, y1: 0, y2: 12}));
        if (row.findings.some((finding) => finding.time !== undefined))
            add("a finding", svg("path", {class: "t-mark", d: "M8 10h8l-4 -7z"}));
        return html("p", {class: "legend", "aria-hidden": "true"}, ...shown);
    }

    // What is known of one input.

    function explain(number) {
        const details = document.querySelector(`details[data-number="${number}"]`);
        if (!details)
            return;
        details.open = true;
        details.querySelector("summary").focus();
    }

    function findingItem(finding) {
        const number = finding.number !== 0 ? ` ${finding.number}` : "";
        return html("li", {}, html("strong", {}, `${finding.level}${number}`), ` ${finding.text} `,
                    finding.place ? html("span", {class: "place"}, `(${finding.place}) `) : null,
                    finding.number === 0 ? null
                        : html("button", {type: "button", click: () => explain(finding.number)}, "What it means",
                               html("span", {class: "unseen"}, `: ${finding.number}`)));
    }

    function trackTable(row) {
        const line = (track) => html("tr", {}, html("th", {scope: "row"}, track.id > 0 ? `${track.id} ${track.kind}` : track.kind),
            html("td", {}, track.codec), html("td", {}, track.detail),
            html("td", {}, track.dropped ? `${track.play}: ${track.dropped.number} ${track.dropped.text}` : track.play));
        const head = ["Track", "Codec", "Details", "Plays"].map((name) => html("th", {scope: "col"}, name));
        return html("table", {}, html("caption", {class: "unseen"}, `Tracks of ${row.path}`),
                    html("thead", {}, html("tr", {}, ...head)), html("tbody", {}, ...row.tracks.map(line)));
    }

    function detail(row) {
        const cause = row.causeText ?? (row.cause === "none" ? "" : row.cause);
        const parts = [html("p", {}, html("strong", {}, [row.verdict, cause].filter((text, i, all) => text !== "" && all.indexOf(text) === i).join(", ")),
                            row.hint ? `: ${row.hint}` : "", ` (${row.kind})`)];
        if (row.tracks.length > 0)
            parts.push(html("h3", {}, "Tracks"), largePicture(row), legend(row), trackTable(row));
        if (row.findings.length > 0)
            parts.push(html("h3", {}, "Findings"), html("ul", {}, ...row.findings.map(findingItem)));
        if (row.omitted)
            parts.push(html("p", {}, `and ${count(row.omitted)} more`));
        return parts;
    }

    // The table.

    const columns = [
        {key: "path", name: "Input", value: (row) => row.path},
        {key: "cause", name: "Cause", value: (row) => (row.cause === "none" ? undefined : row.cause)},
        {key: "findings", name: "Findings", value: (row) => row.findings.length + (row.omitted ?? 0)},
        {key: "change", name: "Change", value: (row) => row.change},
        {key: "bytes", name: "Size", value: (row) => row.bytes},
        {key: "until", name: "Plays until", value: (row) => row.until},
        {key: "tracks", name: "Tracks"},
    ].filter((column) => column.key !== "change" || hasChanges);

    const filters = [
        {key: "cause", name: "Cause", values: (row) => [row.cause]},
        {key: "number", name: "Number", values: (row) => row.numbers.map(String)},
        {key: "change", name: "Change", values: (row) => (row.change ? [row.change] : [])},
        {key: "kind", name: "Kind", values: (row) => [row.kind]},
    ];

    const state = {};
    const defaults = {q: "", sort: "", down: "", page: "1", cause: "", number: "", change: "", kind: ""};
    const open = new Set();
    const controls = {};

    function readAddress() {
        Object.assign(state, defaults);
        if (!location.hash.startsWith("#view?"))
            return;
        for (const [key, value] of new URLSearchParams(location.hash.slice(6)))
            if (key in defaults)
                state[key] = value;
    }

    function writeAddress() {
        const set = Object.entries(state).filter(([key, value]) => value !== defaults[key]);
        const address = set.length > 0 ? `#view?${new URLSearchParams(set)}` : " ";
        try {
            history.replaceState(null, "", address.trim() || location.pathname + location.search);
        } catch {
            // A page that was opened in a frame may not.
        }
    }

    function textOf(row) {
        row.searched ??= [row.path, row.cause, row.causeText ?? "",
            ...row.findings.flatMap((finding) => [finding.text, finding.place ?? ""]),
            ...row.tracks.map((track) => track.codec)].join("\n").toLowerCase();
        return row.searched;
    }

    function compare(a, b) {
        if (a === undefined || b === undefined)
            return 0;
        if (typeof a === "number")
            return a - b;
        return a < b ? -1 : (a > b ? 1 : 0);
    }

    function chosenRows() {
        const words = state.q.toLowerCase().split(" ").filter((word) => word !== "");
        const chosen = rows.filter((row) =>
            filters.every(({key, values}) => state[key] === "" || values(row).includes(state[key])) &&
            words.every((word) => textOf(row).includes(word)));
        const column = columns.find(({key, value}) => value && key === state.sort);
        if (!column)
            return chosen;
        // What is not known comes last in either order.
        const known = chosen.filter((row) => column.value(row) !== undefined);
        const unknown = chosen.filter((row) => column.value(row) === undefined);
        const sign = state.down !== "" ? -1 : 1;
        known.sort((a, b) => sign * compare(column.value(a), column.value(b)));
        return known.concat(unknown);
    }

    function cellOf(key, row) {
        switch (key) {
        case "cause":
            return row.cause === "none" ? "" : row.cause;
        case "findings":
            return row.numbers.join(", ");
        case "change":
            return row.change ?? "";
        case "bytes":
            return row.bytes === undefined ? "" : sizeText(row.bytes);
        case "until":
            return row.until === undefined ? "" : timeText(row.until);
        default:
            return smallPicture(row);
        }
    }

    function rowElements(row, id) {
        const button = html("button", {type: "button", class: "open", "aria-expanded": String(open.has(row))}, row.path);
        const line = html("tr", {}, html("th", {scope: "row"}, button),
                          ...columns.slice(1).map(({key}) => html("td", {class: key === "bytes" || key === "until" ? "number" : ""}, cellOf(key, row))));
        const more = () => html("tr", {class: "detail", id}, html("td", {colspan: columns.length}, ...detail(row)));
        let shown = open.has(row) ? more() : null;
        if (shown)
            button.setAttribute("aria-controls", id);
        button.addEventListener("click", () => {
            if (shown) {
                shown.remove();
                shown = null;
                open.delete(row);
                button.removeAttribute("aria-controls");
            } else {
                shown = more();
                line.after(shown);
                open.add(row);
                button.setAttribute("aria-controls", id);
            }
            button.setAttribute("aria-expanded", String(shown !== null));
        });
        return shown ? [line, shown] : [line];
    }

    function showHeaders() {
        for (const {key, value} of columns) {
            const header = controls[`head-${key}`];
            if (value && state.sort === key)
                header.setAttribute("aria-sort", state.down !== "" ? "descending" : "ascending");
            else
                header.removeAttribute("aria-sort");
        }
    }

    function update() {
        const chosen = chosenRows();
        const pages = Math.max(Math.ceil(chosen.length / kPageSize), 1);
        const page = Math.min(Math.max(Number.parseInt(state.page, 10) || 1, 1), pages);
        state.page = String(page);
        const first = (page - 1) * kPageSize;
        const shown = chosen.slice(first, first + kPageSize);
        controls.body.replaceChildren(...shown.flatMap((row, i) => rowElements(row, `detail-${i}`)));
        controls.status.textContent = chosen.length === 0 ? "No input is like this."
            : `Inputs ${count(first + 1)} to ${count(first + shown.length)} of ${count(chosen.length)}`;
        controls.pages.textContent = `Page ${count(page)} of ${count(pages)}`;
        for (const [name, isOff] of [["first", page === 1], ["previous", page === 1], ["next", page === pages], ["last", page === pages]])
            controls[name].disabled = isOff;
        controls.pager.hidden = pages === 1;
        for (const key of ["q", "cause", "number", "change", "kind"])
            if (controls[key] && controls[key].value !== state[key])
                controls[key].value = state[key];
        showHeaders();
        writeAddress();
    }

    function change(values) {
        Object.assign(state, {page: "1"}, values);
        update();
    }

    function filterControl({key, name, values}) {
        const counts = new Map();
        for (const row of rows)
            for (const value of values(row))
                counts.set(value, (counts.get(value) ?? 0) + 1);
        if (counts.size < 2)
            return null;
        const sorted = [...counts].sort((a, b) => b[1] - a[1]);
        controls[key] = html("select", {change: (event) => change({[key]: event.target.value})},
                             html("option", {value: ""}, "all"),
                             ...sorted.map(([value, n]) => html("option", {value}, `${value} (${count(n)})`)));
        return html("label", {}, name, controls[key]);
    }

    function makeFilters() {
        let timer = 0;
        const search = () => {
            clearTimeout(timer);
            timer = setTimeout(() => change({q: controls.q.value}), 150);
        };
        controls.q = html("input", {type: "search", input: search});
        return html("div", {class: "filters", role: "search"},
                    html("label", {class: "search"}, "Search names and findings", controls.q),
                    ...filters.map(filterControl),
                    html("button", {type: "button", click: () => change(defaults)}, "Reset"));
    }

    function makeTable() {
        const headers = columns.map(({key, name, value}) => {
            const sort = () => change({sort: key, down: state.sort === key && state.down === "" ? "1" : ""});
            const isNumber = key === "bytes" || key === "until";
            controls[`head-${key}`] = html("th", {scope: "col", class: `c-${key}${isNumber ? " number" : ""}`},
                                           value ? html("button", {type: "button", click: sort}, name) : name);
            return controls[`head-${key}`];
        });
        controls.body = html("tbody");
        return html("div", {class: "scroll", role: "region", "aria-labelledby": "inputs", tabindex: "0"},
                    html("table", {class: "inputs"}, html("caption", {class: "unseen"}, "Inputs with findings; the buttons in the headers sort"),
                         html("thead", {}, html("tr", {}, ...headers)), controls.body));
    }

    function makePager() {
        const turn = (name, label, target) => {
            controls[name] = html("button", {type: "button", click: () => change({page: String(target())})}, label);
            return controls[name];
        };
        controls.pages = html("span");
        controls.pager = html("nav", {class: "pager", "aria-label": "Pages of the table"},
                              turn("first", "First", () => 1), turn("previous", "Previous", () => Number(state.page) - 1), controls.pages,
                              turn("next", "Next", () => Number(state.page) + 1), turn("last", "Last", () => Number.MAX_SAFE_INTEGER));
        return controls.pager;
    }

    function bindShowButtons() {
        for (const button of document.querySelectorAll("button.show"))
            button.addEventListener("click", () => {
                change({...defaults, [button.dataset.filter]: button.dataset.value});
                document.getElementById("inputs").focus();
            });
    }

    const place = document.getElementById("table");
    if (rows.length === 0) {
        place.append(html("p", {}, "No input has a finding."));
    } else {
        controls.status = html("p", {class: "status", role: "status"});
        place.append(makeFilters(), controls.status, makeTable(), makePager());
        readAddress();
        update();
        addEventListener("hashchange", () => {
            if (location.hash.startsWith("#view?")) {
                readAddress();
                update();
            }
        });
        bindShowButtons();
        document.documentElement.classList.add("script");
    }
})();
