// A server of Go's standard library for ForeignServer.cpp: what it is asked for says what it answers.
package main

import (
	"crypto/tls"
	"crypto/x509"
	"flag"
	"fmt"
	"io"
	"log"
	"net/http"
	"os"
	"strconv"
	"strings"
	"sync"
)

var (
	address = flag.String("address", "", "address and port")
	folder  = flag.String("folder", "", "where server.pem, server.key and clients.pem are")
	version = flag.String("tls", "1.3", "the only version of TLS")
	http2   = flag.Bool("http2", true, "offer HTTP/2")
)

// Who asks, and how.
func stats(answer http.ResponseWriter, request *http.Request) {
	version := map[uint16]string{tls.VersionTLS12: "TLSv1.2", tls.VersionTLS13: "TLSv1.3"}
	fmt.Fprintf(answer, "%s %s %s", request.TLS.PeerCertificates[0].Subject, request.Proto,
		version[request.TLS.Version])
}

// Part of a body, and no more.
func stall(answer http.ResponseWriter, request *http.Request) {
	io.WriteString(answer, "begun")
	answer.(http.Flusher).Flush()
	<-request.Context().Done()
}

func post(answer http.ResponseWriter, request *http.Request) {
	body, _ := io.ReadAll(request.Body)
	fmt.Fprintf(answer, "%s %s", request.Method, body)
}

// Holds requests until so many are there, and then answers the last one first.
type gathering struct {
	mutex   sync.Mutex
	waiting []chan struct{}
}

func (all *gathering) wait(count int) (done func()) {
	mine := make(chan struct{})
	all.mutex.Lock()
	all.waiting = append(all.waiting, mine)
	before := func() {}
	if index := len(all.waiting) - 1; index > 0 {
		previous := all.waiting[index-1]
		before = func() { close(previous) }
	}
	if len(all.waiting) == count {
		all.waiting = nil
		close(mine)
	}
	all.mutex.Unlock()
	<-mine
	return before
}

var gathered gathering

// "/number=7" and "/gather=16/number=7" are answered with many copies of "number=7".
func number(answer http.ResponseWriter, request *http.Request) {
	path := strings.Trim(request.URL.Path, "/")
	if parts := strings.Split(path, "/"); len(parts) == 2 {
		path = parts[1]
		count, _ := strconv.Atoi(strings.TrimPrefix(parts[0], "gather="))
		defer gathered.wait(count)()
	}
	io.WriteString(answer, strings.Repeat(path+" ", 2000))
}

func main() {
	flag.Parse()
	clients := x509.NewCertPool()
	authority, err := os.ReadFile(*folder + "/clients.pem")
	if err != nil || !clients.AppendCertsFromPEM(authority) {
		log.Fatal("no authority of the clients: ", err)
	}
	only := map[string]uint16{"1.2": tls.VersionTLS12, "1.3": tls.VersionTLS13}[*version]
	mux := http.NewServeMux()
	mux.HandleFunc("/stats", stats)
	mux.HandleFunc("/stall", stall)
	mux.HandleFunc("/post", post)
	mux.HandleFunc("/", number)
	server := http.Server{Addr: *address, Handler: mux, TLSConfig: &tls.Config{
		ClientAuth: tls.RequireAndVerifyClientCert, ClientCAs: clients,
		MinVersion: only, MaxVersion: only}}
	if !*http2 {
		server.TLSNextProto = map[string]func(*http.Server, *tls.Conn, http.Handler){}
	}
	log.Fatal(server.ListenAndServeTLS(*folder+"/server.pem", *folder+"/server.key"))
}
