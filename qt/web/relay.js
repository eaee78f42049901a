// What the engine keeps from addresses of a scheme of one's own, given back to the service's pages: the
// bodies of forms and requests, the status and the fields of answers, and `fetch`. Runs before anything
// of the page does.
(function() {
  'use strict';
  if (self.origin !== 'kvlocal://service') return;

  const prototype = XMLHttpRequest.prototype;
  const {open, send, setRequestHeader} = prototype;
  const getterOf = (owner, name) => Object.getOwnPropertyDescriptor(owner, name).get;
  // Not of the objects themselves, where names of the page's own elements hide them.
  const elementsOf = getterOf(HTMLFormElement.prototype, 'elements');
  const baseOf = getterOf(Node.prototype, 'baseURI');
  const addressOf = getterOf(Document.prototype, 'URL');
  const {getAttribute} = Element.prototype;
  const nativeStatus = getterOf(prototype, 'status');
  const nativeReason = getterOf(prototype, 'statusText');
  const nativeField = prototype.getResponseHeader;
  const nativeFields = prototype.getAllResponseHeaders;
  const nativeFetch = self.fetch;
  const states = new WeakMap();
  const unknownHead = {status: 0, reason: '', fields: []};

  // More of one body is not taken; it is told in base64.
  const most = Math.ceil((16 << 20) / 3) * 4;

  const whole = address => new URL(address, baseOf.call(document));
  const isOwn = url => whole(url).protocol === 'kvlocal:';
  const utf8 = text => new TextEncoder().encode(text);
  const ascii = text => text.replace(/[^ -~]/g, c => '\\u' + c.charCodeAt(0).toString(16).padStart(4, '0'));
  const token = () => Array.from(crypto.getRandomValues(new Uint32Array(4)), n => n.toString(36)).join('');

  // Answered by the relay itself, before this returns.
  function askRelay(field, value) {
    const request = new XMLHttpRequest();
    open.call(request, 'GET', 'kvlocal://service/', false);
    setRequestHeader.call(request, field, value);
    send.call(request);
    return request.responseText;
  }

  // A body has to be complete when the submission or `send` goes on, and this is the one way to read a
  // file without waiting. Its beginning would count as a byte order mark, if it looks like one.
  function bytesOf(blob) {
    const url = URL.createObjectURL(new Blob(['-', blob]));
    const request = new XMLHttpRequest();
    open.call(request, 'GET', url, false);
    request.overrideMimeType('text/plain; charset=x-user-defined');
    send.call(request);
    URL.revokeObjectURL(url);
    return Uint8Array.from(request.responseText.slice(1), c => c.charCodeAt(0));
  }

  function base64(parts) {
    let text = '';
    for (const part of parts)
      for (let at = 0; at < part.length; at += 0x8000)
        text += String.fromCharCode.apply(null, part.subarray(at, at + 0x8000));
    return btoa(text);
  }

  const withLines = text => text.replace(/\r\n|\r|\n/g, '\r\n');
  const textOf = value => withLines(value instanceof File ? value.name : value);

  function multipart(data) {
    const quoted = text => text.replace(/\r\n|\r|\n/g, '%0D%0A').replace(/"/g, '%22');
    const boundary = '----kvlocal' + token();
    const parts = [];
    for (const [name, value] of data) {
      const head = `--${boundary}\r\nContent-Disposition: form-data; name="${quoted(name)}"`;
      if (value instanceof File)
        parts.push(utf8(`${head}; filename="${quoted(value.name)}"\r\n` +
                        `Content-Type: ${value.type || 'application/octet-stream'}\r\n\r\n`),
                   bytesOf(value), utf8('\r\n'));
      else
        parts.push(utf8(`${head}\r\n\r\n${withLines(value)}\r\n`));
    }
    parts.push(utf8(`--${boundary}--\r\n`));
    return {type: 'multipart/form-data; boundary=' + boundary, bytes: base64(parts)};
  }

  function urlEncoded(data) {
    const pairs = Array.from(data, ([name, value]) => [withLines(name), textOf(value)]);
    return {type: 'application/x-www-form-urlencoded', bytes: base64([utf8(new URLSearchParams(pairs).toString())])};
  }

  function plain(data) {
    const lines = Array.from(data, ([name, value]) => `${withLines(name)}=${textOf(value)}\r\n`);
    return {type: 'text/plain', bytes: base64([utf8(lines.join(''))])};
  }

  // The engine tells twice what it is about to submit, the second time without the button.
  let submission = null;
  addEventListener('submit', event => { submission = event; }, true);
  function entriesOf(event) {
    const entries = Array.from(event.formData);
    const isGoingOn = submission && submission.target === event.target &&
                      submission.eventPhase === Event.NONE && !submission.defaultPrevented;
    const button = isGoingOn ? submission.submitter : null;
    setTimeout(() => { submission = null; });
    if (button && button.name && !entries.some(([name]) => name === button.name))
      entries.push([button.name, button.value]);
    return entries;
  }

  // The last moment before the browser submits a form, however that came about. Which of the form's
  // buttons it was shows in the request only, so the body is handed over for each address and encoding.
  addEventListener('formdata', event => {
    const ways = [event.target, ...elementsOf.call(event.target)];
    const read = (way, name) => getAttribute.call(way, (way === event.target ? '' : 'form') + name);
    if (!ways.some(way => /^post$/i.test(read(way, 'method')))) return;
    const addresses = ways.map(way => whole(read(way, 'action') || addressOf.call(document)).href);
    const entries = entriesOf(event);
    const bodies = [multipart, urlEncoded, plain].map(encoded => encoded(entries));
    const form = {addresses: addresses.filter(isOwn), bodies: bodies.filter(body => body.bytes.length <= most)};
    askRelay('X-KVLocal-Form', ascii(JSON.stringify(form)));
  });

  function bodyOf(body) {
    if (body instanceof FormData) return multipart(body);
    if (body instanceof Blob) return {type: body.type, bytes: base64([bytesOf(body)])};
    if (body instanceof ArrayBuffer) return {type: '', bytes: base64([new Uint8Array(body)])};
    if (ArrayBuffer.isView(body))
      return {type: '', bytes: base64([new Uint8Array(body.buffer, body.byteOffset, body.byteLength)])};
    if (body instanceof URLSearchParams)
      return {type: 'application/x-www-form-urlencoded;charset=UTF-8', bytes: base64([utf8(body.toString())])};
    if (body instanceof Document)
      return {type: 'text/html;charset=UTF-8', bytes: base64([utf8(new XMLSerializer().serializeToString(body))])};
    return {type: 'text/plain;charset=UTF-8', bytes: base64([utf8(String(body))])};
  }

  prototype.open = function(method, url) {
    open.apply(this, arguments);
    states.set(this, {isOwn: isOwn(url), number: token(), sends: !/^(get|head)$/i.test(method)});
  };
  prototype.setRequestHeader = function(name, value) {
    setRequestHeader.call(this, name, value);
    if (/^content-type$/i.test(name) && states.has(this)) states.get(this).isTyped = true;
  };
  prototype.send = function(body) {
    const state = states.get(this);
    if (!state || !state.isOwn) return send.call(this, body);
    setRequestHeader.call(this, 'X-KVLocal-Number', state.number);
    if (state.sends && body !== undefined && body !== null) {
      const {type, bytes} = bodyOf(body);
      if (type && !state.isTyped) setRequestHeader.call(this, 'Content-Type', type);
      setRequestHeader.call(this, 'X-KVLocal-Body', bytes);
    }
    send.call(this);
  };

  // What the service's answer began with; none before it has come and after a failure. The relay keeps
  // the latest only, and the engine calls each of them 200.
  function headOf(request) {
    const state = states.get(request);
    if (!state || !state.isOwn || nativeStatus.call(request) === 0) return null;
    if (!state.head) state.head = JSON.parse(askRelay('X-KVLocal-Head', state.number) || 'null') || unknownHead;
    return state.head;
  }

  Object.defineProperty(prototype, 'status', {configurable: true, get() {
    return (headOf(this) || {status: nativeStatus.call(this)}).status;
  }});
  Object.defineProperty(prototype, 'statusText', {configurable: true, get() {
    return (headOf(this) || {reason: nativeReason.call(this)}).reason;
  }});
  prototype.getAllResponseHeaders = function() {
    const head = headOf(this);
    return head ? head.fields.map(([name, value]) => `${name.toLowerCase()}: ${value}\r\n`).join('')
                : nativeFields.call(this);
  };
  prototype.getResponseHeader = function(name) {
    const head = headOf(this);
    return head ? new Headers(head.fields).get(name) : nativeField.call(this, name);
  };

  function fetchOwn(request, body) {
    return new Promise((resolve, reject) => {
      const exchange = new XMLHttpRequest();
      exchange.open(request.method, request.url);
      exchange.responseType = 'blob';
      request.headers.forEach((value, name) => exchange.setRequestHeader(name, value));
      exchange.onerror = () => reject(new TypeError('Failed to fetch'));
      exchange.onabort = () => reject(new DOMException('The request was aborted.', 'AbortError'));
      exchange.onload = () => {
        const {status, reason, fields} = headOf(exchange) || unknownHead;
        const content = [204, 205, 304].includes(status) ? null : exchange.response;
        try {
          resolve(new Response(content, {status, statusText: reason, headers: fields}));
        } catch (error) {
          reject(new TypeError('Failed to fetch: ' + error.message));
        }
      };
      request.signal.addEventListener('abort', () => exchange.abort());
      exchange.send(body && body.byteLength ? body : null);
      if (request.signal.aborted) exchange.abort();
    });
  }

  self.fetch = async function(input, options) {
    const request = new Request(input, options);
    if (!isOwn(request.url)) return nativeFetch(request);
    return fetchOwn(request, await request.arrayBuffer());
  };
})();
