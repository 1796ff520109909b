// Inputs that the library must not be given: they would end the process, raise a C++ exception, or
// reach the token as something else than was meant. A check answers the reason, or nothing.
'use strict';
const {limits, say} = require('./codes');

/** What the library would copy into its key buffer; a longer text ends the process. */
function keyText(text) {
    const clean = text.replaceAll(',', '');
    const header = clean.includes(limits.keyHeader) ? limits.keyHeader.length : 0;
    const body = Buffer.byteLength(clean) - header;
    return body <= limits.keyBuffer ? undefined : say('KeyTooLong', body, limits.keyBuffer);
}

/** The same for each key text of a bundle, found in it as the library finds it. */
function bundle(text) {
    const opener = 'EncPriKey(';
    const clean = text.replace(/[,\r\n]/g, '');
    if (clean.indexOf('(') < 1) return undefined;  // one certificate
    let at = clean.indexOf(opener);
    while (at >= 0) {
        const end = clean.indexOf(')', at);
        if (end < 0) return undefined;
        const reason = keyText(clean.slice(at + opener.length, end));
        if (reason) return reason;
        at = end + 2 > clean.length ? -1 : clean.indexOf(opener, end + 2);
    }
    return undefined;
}

function skip(text, character, from) {
    let at = from;
    while (text[at] === character) ++at;
    return at;
}

function endsAfterName(group) {
    for (let at = 0;;) {
        at = skip(group, '(', at);
        if (at === group.length) return false;
        const open = group.indexOf('(', at);
        const name = open < 0 ? group.slice(at) : group.slice(at, open);
        if (!/^[ \t\n\v\f\r]*(certtype|keytype|hashtype)[ \t\n\v\f\r]*$/i.test(name)) return false;
        if (open < 0) return true;
        at = skip(group, ')', open + 1);
        if (at === group.length) return false;
        at = group.indexOf(')', at);
        if (at < 0) return false;
        ++at;
    }
}

/** A group that ends right after a name raises an exception inside the library. */
function requestInfo(text) {
    return text.split('|').some(endsAfterName) ? say('GroupEndsAfterName') : undefined;
}

/** Texts of a list that is joined by "||". */
function items(texts) {
    for (const text of texts) {
        if (text === '') return say('EmptyItem');
        if (text.includes('||') || text.startsWith('|') || text.endsWith('|')) {
            return say('ItemSeparator');
        }
    }
    return undefined;
}

module.exports = {bundle, items, keyText, requestInfo};
