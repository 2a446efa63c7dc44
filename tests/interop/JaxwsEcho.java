// A SOAP endpoint on JAX-WS (Debian's libjaxws-java) for the interoperability
// tests: /soap11 and /soap12 take any request (Provider<SOAPMessage>), on a
// free loopback port that it prints as "listening on PORT".
//
// A body whose first element is named "fault" is answered with a SOAP Fault
// whose reason is that element's text. Any other request is answered with
// <r:echoResponse> holding the request's Content-Type, SOAPAction and
// Authorization headers and its body element's text, followed by every
// attachment of the request, each with its type, id and bytes.
//
// Run by scripts/interop.sh: javac -cp /usr/share/java/jaxws-rt.jar, then java.
import com.sun.net.httpserver.HttpServer;
import java.io.IOException;
import java.net.InetSocketAddress;
import java.util.Iterator;
import java.util.List;
import java.util.Map;
import javax.annotation.Resource;
import javax.xml.namespace.QName;
import javax.xml.soap.AttachmentPart;
import javax.xml.soap.MessageFactory;
import javax.xml.soap.SOAPBody;
import javax.xml.soap.SOAPConstants;
import javax.xml.soap.SOAPElement;
import javax.xml.soap.SOAPException;
import javax.xml.soap.SOAPFactory;
import javax.xml.soap.SOAPFault;
import javax.xml.soap.SOAPMessage;
import javax.xml.ws.BindingType;
import javax.xml.ws.Endpoint;
import javax.xml.ws.Provider;
import javax.xml.ws.ServiceMode;
import javax.xml.ws.WebServiceContext;
import javax.xml.ws.WebServiceProvider;
import javax.xml.ws.handler.MessageContext;
import javax.xml.ws.soap.SOAPBinding;
import javax.xml.ws.soap.SOAPFaultException;

public class JaxwsEcho {
    static final String NS = "urn:talvex:interop";

    abstract static class Echo implements Provider<SOAPMessage> {
        @Resource WebServiceContext context;

        abstract String protocol();

        public SOAPMessage invoke(SOAPMessage request) {
            try {
                SOAPElement call = firstElement(request.getSOAPBody());
                if (call != null && call.getLocalName().equals("fault")) throw fault(call.getTextContent());
                SOAPMessage response = MessageFactory.newInstance(protocol()).createMessage();
                SOAPElement echo = response.getSOAPBody().addChildElement("echoResponse", "r", NS);
                echo.addChildElement("contentType", "r").addTextNode(header("Content-Type"));
                echo.addChildElement("soapAction", "r").addTextNode(header("SOAPAction"));
                echo.addChildElement("authorization", "r").addTextNode(header("Authorization"));
                echo.addChildElement("text", "r").addTextNode(call == null ? "" : call.getTextContent());
                for (Iterator<?> it = request.getAttachments(); it.hasNext();) {
                    AttachmentPart part = (AttachmentPart) it.next();
                    AttachmentPart copy = response.createAttachmentPart();
                    copy.setRawContentBytes(part.getRawContentBytes(), 0, part.getSize(), part.getContentType());
                    copy.setContentId(part.getContentId());
                    response.addAttachmentPart(copy);
                }
                response.saveChanges();
                return response;
            } catch (SOAPException e) {
                throw new RuntimeException(e);
            }
        }

        SOAPFaultException fault(String reason) throws SOAPException {
            SOAPFault fault = SOAPFactory.newInstance(protocol()).createFault(
                reason, protocol().equals(SOAPConstants.SOAP_1_2_PROTOCOL)
                            ? SOAPConstants.SOAP_SENDER_FAULT : new QName(SOAPConstants.URI_NS_SOAP_1_1_ENVELOPE, "Client"));
            return new SOAPFaultException(fault);
        }

        String header(String name) {
            @SuppressWarnings("unchecked")
            Map<String, List<String>> headers =
                (Map<String, List<String>>) context.getMessageContext().get(MessageContext.HTTP_REQUEST_HEADERS);
            List<String> values = headers == null ? null : headers.get(name);
            return values == null ? "" : String.join(", ", values);
        }

        static SOAPElement firstElement(SOAPBody body) {
            for (Iterator<?> it = body.getChildElements(); it.hasNext();) {
                Object node = it.next();
                if (node instanceof SOAPElement) return (SOAPElement) node;
            }
            return null;
        }
    }

    @WebServiceProvider
    @ServiceMode(javax.xml.ws.Service.Mode.MESSAGE)
    @BindingType(SOAPBinding.SOAP11HTTP_BINDING)
    public static class Soap11 extends Echo {
        String protocol() { return SOAPConstants.SOAP_1_1_PROTOCOL; }
    }

    @WebServiceProvider
    @ServiceMode(javax.xml.ws.Service.Mode.MESSAGE)
    @BindingType(SOAPBinding.SOAP12HTTP_BINDING)
    public static class Soap12 extends Echo {
        String protocol() { return SOAPConstants.SOAP_1_2_PROTOCOL; }
    }

    public static void main(String[] args) throws IOException {
        HttpServer server = HttpServer.create(new InetSocketAddress("127.0.0.1", 0), 16);
        Endpoint.create(new Soap11()).publish(server.createContext("/soap11"));
        Endpoint.create(new Soap12()).publish(server.createContext("/soap12"));
        server.start();
        System.out.println("listening on " + server.getAddress().getPort());
    }
}
